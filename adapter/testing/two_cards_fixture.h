// Two readers with a card each.
#pragma once

#include <string>

#include "adapter/testing/behaviour_fixture.h"
#include "p11/bringup.h"

namespace kelvrin::adapter {

class TwoCardsTest : public BehaviourTest {
 protected:
  EVP_PKEY* KeyOf(const MemoryCard& card) const {
    return card.KeyOf(&card == &first ? first_key : second_key);
  }
  void ExpectToWork(Extension& token, const MemoryCard& card) {
    EXPECT_EQ(token.LogIn(card.pin), CKR_OK);
    EXPECT_TRUE(token.SignsWith(KeyOf(card)));
  }
  void SetUpAndWork(Extension& token, const MemoryCard& card) {
    ASSERT_EQ(token.SetUp(), CKR_OK);
    ExpectToWork(token, card);
  }
  // Everything that the extension does with a token that it has brought up again says that the card
  // is not there, and the module behind sees none of it.
  void ExpectAbsent(Extension& token, const std::string& pin) {
    module.ForgetCalls();
    bool answer = false;
    Bytes result;
    CK_BBOOL needs_login = CK_TRUE;
    CK_ULONG count = 0;
    CK_OBJECT_HANDLE key = 1;
    CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
    CK_FUNCTION_LIST* const p11 = token.p11;
    const CK_SESSION_HANDLE session = token.session;
    EXPECT_EQ(token.Supports(1, CKA_VERIFY, CKM_RSA_PKCS, &answer), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(login_required(p11, session, &needs_login), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(token.LogIn(pin), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, result.data(), 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Logout(session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(token.FindKey(1, &key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DecryptInit(session, &mechanism, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Sign(session, nullptr, 0, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Decrypt(session, nullptr, 0, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DeriveKey(session, &mechanism, key, nullptr, 0, &key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjects(session, &key, 1, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_GetAttributeValue(session, key, nullptr, 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DestroyObject(session, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_THAT(module.Calls(), testing::IsEmpty());
  }
  std::string Description(Extension& token) const {
    CK_SLOT_INFO info = {};
    EXPECT_EQ(token.p11->C_GetSlotInfo(token.slot, &info), CKR_OK);
    return {std::begin(info.slotDescription), std::end(info.slotDescription)};
  }

  MemoryCard& first = AddCard({.reader = "Alpha 00 00", .label = "1 A", .serial = "1"});
  CK_OBJECT_HANDLE first_key = ec.private_key;
  MemoryCard& second =
      AddCard({.reader = "Beta 00 00", .label = "2 B", .serial = "2", .pin = "222222"});
  CK_OBJECT_HANDLE second_key = ec.private_key;
  const std::filesystem::path library = Adapter();  // chooses the first
  Extension extension{library};
};

}  // namespace kelvrin::adapter
