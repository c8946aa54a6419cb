// SoftHSM as it is and behind the adapter, and calls as the extension makes them.
#ifndef KELVRIN_ADAPTER_TESTING_SOFTHSM_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_SOFTHSM_FIXTURE_H_

#include <gtest/gtest.h>

#include <array>

#include "adapter/testing/card_test.h"
#include "adapter/testing/loaded_library.h"
#include "adapter/testing/openssl_check.h"

namespace kelvrin::adapter {

inline constexpr CK_BYTE kRsaId = 1;
inline constexpr CK_BYTE kEcId = 2;

// The module as it is, and the adapter in front of it; one of the two is open at a time.
class SoftHsmTest : public CardTest {
 protected:
  SoftHsmTest()
      : raw_(LoadLibrary(SoftHsmCard::Module())), adapted_(LoadLibrary(Install("libX"))) {}
  ~SoftHsmTest() override {
    if (opened_ != nullptr) opened_->p11->C_Finalize(nullptr);
  }

  Card& Opened(Card& card, bool login = true) {
    if (opened_ != nullptr) opened_->p11->C_Finalize(nullptr);
    opened_ = &card;
    card.Open();
    if (login) {
      EXPECT_EQ(card.Login(soft_card_.pin()), CKR_OK);
    }
    return card;
  }
  Card& Raw(bool login = true) { return Opened(raw_, login); }
  Card& Adapted(bool login = true) { return Opened(adapted_, login); }

  // A whole signature in the extension's five calls; the result of the first that fails.
  static CK_RV SignAsTheExtensionDoes(const Card& card, CK_BYTE id, CK_MECHANISM_TYPE mechanism,
                                      const Bytes& data, Bytes* signature) {
    CK_SESSION_INFO info = {};
    CK_RV result = card.p11->C_GetSessionInfo(card.session, &info);
    if (result != CKR_OK) return result;
    EXPECT_EQ(info.state, CKS_RW_USER_FUNCTIONS);
    result = card.FindInit(CKO_PRIVATE_KEY, id);
    if (result != CKR_OK) return result;
    std::array<CK_OBJECT_HANDLE, 10> keys = {};
    CK_ULONG count = keys.size();
    result = card.p11->C_FindObjects(card.session, keys.data(), keys.size(), &count);
    if (result != CKR_OK) return result;
    EXPECT_EQ(count, 1u);
    result = card.SignInit(mechanism, keys[0]);
    return result == CKR_OK ? card.Sign(data, signature) : result;
  }

  static std::vector<CK_MECHANISM_TYPE> Allowed(const Card& card, CK_OBJECT_HANDLE key) {
    std::vector<CK_MECHANISM_TYPE> list(128);
    CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, list.data(), 1024};
    EXPECT_EQ(card.p11->C_GetAttributeValue(card.session, key, &attribute, 1), CKR_OK);
    list.resize(attribute.ulValueLen / sizeof(CK_MECHANISM_TYPE));
    return list;
  }
  static int Flag(const Card& card, CK_OBJECT_HANDLE key, CK_ATTRIBUTE_TYPE type) {
    std::array<CK_BYTE, 1024> value = {};
    CK_ATTRIBUTE attribute = {type, value.data(), value.size()};
    EXPECT_EQ(card.p11->C_GetAttributeValue(card.session, key, &attribute, 1), CKR_OK);
    return value[0];
  }
  static CK_RV Derive(const Card& card, Bytes point, CK_OBJECT_HANDLE* secret) {
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    parameters.kdf = CKD_NULL;
    parameters.ulPublicDataLen = point.size();
    parameters.pPublicData = point.data();
    CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
    const CK_OBJECT_HANDLE key = card.Find(CKO_PRIVATE_KEY, kEcId);
    return card.p11->C_DeriveKey(card.session, &mechanism, key, nullptr, 0, secret);
  }
  static Bytes Value(const Card& card, CK_OBJECT_HANDLE object) {
    Bytes value(1024);
    CK_ATTRIBUTE attribute = {CKA_VALUE, value.data(), value.size()};
    EXPECT_EQ(card.p11->C_GetAttributeValue(card.session, object, &attribute, 1), CKR_OK);
    value.resize(attribute.ulValueLen);
    return value;
  }
  OpensslKey PublicKey(const char* file) const { return ReadPublicKey(soft_card_.File(file)); }

 private:
  Card raw_;
  Card adapted_;
  Card* opened_ = nullptr;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_SOFTHSM_FIXTURE_H_
