// Copies of the built adapter over one watched SoftHSM.
#ifndef KELVRIN_ADAPTER_TESTING_COPIES_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_COPIES_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>

#include "adapter/testing/card_test.h"
#include "adapter/testing/openssl_check.h"
#include "adapter/testing/watching_module.h"

namespace kelvrin::adapter {

class CopiesTest : public CardTest {
 protected:
  // The copy of that name, with these lines more in its configuration.
  CK_FUNCTION_LIST* Load(const std::string& name, const std::string& lines = "") const {
    return LoadLibrary(Install(name, lines, KELVRIN_WATCHING_MODULE));
  }

  // Logs in, which may have been done for the whole process before.
  void Login(const Card& card) const {
    const CK_RV result = card.Login(soft_card_.pin());
    EXPECT_TRUE(result == CKR_OK || result == CKR_USER_ALREADY_LOGGED_IN) << result;
  }
  // Initialises, opens a session and logs in.
  void BringUp(Card* card) const {
    card->Open();
    Login(*card);
  }
  // Whether an ECDSA signature of `digest` made in the card's session is good.
  bool Signs(const Card& card, const Bytes& digest = Bytes(32, 7)) const {
    const OpensslKey key = ReadPublicKey(soft_card_.File("ec.pub.pem"));
    Bytes signature;
    return card.SignInit(CKM_ECDSA, card.Find(CKO_PRIVATE_KEY, 2)) == CKR_OK &&
           card.Sign(digest, &signature) == CKR_OK && VerifyEcdsa(key.get(), digest, signature);
  }

  CK_FUNCTION_LIST* softhsm_ = LoadLibrary(SoftHsmCard::Module());
  Watch& watch_ = WatchModule(KELVRIN_WATCHING_MODULE, softhsm_);
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_COPIES_FIXTURE_H_
