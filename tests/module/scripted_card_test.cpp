// The scripted module's behaviour as a card.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/module/scripted_module.h"

namespace {

using scripted::Bytes;
using scripted::Function;
using scripted::ScriptedModule;
using testing::ElementsAre;

class ScriptedCard : public testing::Test {
 protected:
  std::vector<CK_OBJECT_HANDLE> Find(CK_OBJECT_CLASS object_class, Bytes id) {
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof object_class},
                             {CKA_ID, id.data(), id.size()}};
    EXPECT_EQ(p11_->C_FindObjectsInit(1, wanted, 2), CKR_OK);
    CK_OBJECT_HANDLE handles[10];
    CK_ULONG count = 0;
    EXPECT_EQ(p11_->C_FindObjects(1, handles, 10, &count), CKR_OK);
    return std::vector<CK_OBJECT_HANDLE>(handles, handles + std::min<CK_ULONG>(count, 10));
  }

  ScriptedModule module_;
  scripted::CardModel& card_ = module_.card();
  CK_FUNCTION_LIST* p11_ = module_.functions();
};

TEST_F(ScriptedCard, ListsSlotsAndMayChangeItsMind) {
  card_.AddSlot(4, "Reader A");
  card_.AddSlot(9, "Reader B").token_present = false;
  CK_ULONG count = 0;
  CK_SLOT_ID ids[2] = {};
  EXPECT_EQ(p11_->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(p11_->C_GetSlotList(CK_FALSE, ids, &count), CKR_OK);
  EXPECT_THAT(ids, ElementsAre(4, 9));
  EXPECT_EQ(p11_->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(p11_->C_GetSlotList(CK_FALSE, ids, &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 2u);
  card_.slot_list_answers = {{CKR_OK, 7, {5, 6, 7}}};
  count = 1;
  EXPECT_EQ(p11_->C_GetSlotList(CK_FALSE, ids, &count), CKR_OK);
  EXPECT_EQ(count, 7u);
  EXPECT_THAT(ids, ElementsAre(5, 9));
}

TEST_F(ScriptedCard, PadsDescriptionAndLabel) {
  card_.AddSlot(4, "Reader A", "4711 0815");
  CK_SLOT_INFO slot;
  CK_TOKEN_INFO token;
  ASSERT_EQ(p11_->C_GetSlotInfo(4, &slot), CKR_OK);
  ASSERT_EQ(p11_->C_GetTokenInfo(4, &token), CKR_OK);
  const std::string description(slot.slotDescription, slot.slotDescription + 64);
  const std::string label(token.label, token.label + 32);
  EXPECT_EQ(description, "Reader A" + std::string(56, ' '));
  EXPECT_EQ(label, "4711 0815" + std::string(23, ' '));
  EXPECT_EQ(p11_->C_GetSlotInfo(5, &slot), CKR_SLOT_ID_INVALID);
}

TEST_F(ScriptedCard, SessionsAndLogin) {
  card_.AddSlot(4, "Reader A");
  card_.pin = "1234";
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(p11_->C_OpenSession(4, 6, nullptr, nullptr, &session), CKR_OK);
  EXPECT_EQ(session, 1u);
  CK_SESSION_INFO info;
  EXPECT_EQ(p11_->C_GetSessionInfo(session, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_PUBLIC_SESSION);
  CK_BYTE wrong[] = {'1'};
  CK_BYTE right[] = {'1', '2', '3', '4'};
  EXPECT_EQ(p11_->C_Login(session, CKU_USER, wrong, 1), CKR_PIN_INCORRECT);
  EXPECT_EQ(p11_->C_Login(session, CKU_USER, right, 4), CKR_OK);
  EXPECT_EQ(p11_->C_Login(session, CKU_USER, right, 4), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(p11_->C_GetSessionInfo(session, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_USER_FUNCTIONS);
}

TEST_F(ScriptedCard, FindsByTemplateInOrder) {
  const CK_OBJECT_HANDLE first = card_.AddPublicKey({1}).handle;
  card_.AddPrivateKey({1});
  card_.AddPublicKey({2});
  const CK_OBJECT_HANDLE second = card_.AddPublicKey({1}).handle;
  EXPECT_THAT(Find(CKO_PUBLIC_KEY, {1}), ElementsAre(first, second));
  EXPECT_THAT(Find(CKO_PUBLIC_KEY, {3}), ElementsAre());
}

TEST_F(ScriptedCard, HidesPrivateKeysOnRequestUntilLogin) {
  card_.AddPrivateKey({1});
  card_.hide_private_keys = true;
  EXPECT_TRUE(Find(CKO_PRIVATE_KEY, {1}).empty());
  card_.session_state = CKS_RW_USER_FUNCTIONS;
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}).size(), 1u);
}

TEST_F(ScriptedCard, RefusesASecondSearchOnlyWhenAsked) {
  EXPECT_EQ(p11_->C_FindObjectsInit(1, nullptr, 0), CKR_OK);
  EXPECT_EQ(p11_->C_FindObjectsInit(1, nullptr, 0), CKR_OK);
  card_.refuse_second_search = true;
  EXPECT_EQ(p11_->C_FindObjectsInit(1, nullptr, 0), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(p11_->C_FindObjectsFinal(1), CKR_OK);
  EXPECT_EQ(p11_->C_FindObjectsInit(1, nullptr, 0), CKR_OK);
}

TEST_F(ScriptedCard, ReadsAttributesAndLiesWhenTold) {
  const CK_OBJECT_HANDLE object = card_.AddPublicKey({1})
                                      .SetText(CKA_LABEL, "abc")
                                      .SetFlag(CKA_VERIFY, true)
                                      .Set(CKA_VALUE, {1, 2, 3, 4, 5})
                                      .Set(CKA_SERIAL_NUMBER, {1})
                                      .Claim(CKA_SERIAL_NUMBER, 999)
                                      .Refuse(CKA_MODULUS, CKR_ATTRIBUTE_SENSITIVE)
                                      .handle;
  CK_BYTE room[4] = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, object, &attribute, 1), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 3u);
  EXPECT_THAT(room, ElementsAre('a', 'b', 'c', 0));
  attribute = {CKA_VALUE, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, object, &attribute, 1), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, static_cast<CK_ULONG>(-1));
  attribute = {CKA_SERIAL_NUMBER, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, object, &attribute, 1), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 999u);
  attribute = {CKA_MODULUS, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, object, &attribute, 1), CKR_ATTRIBUTE_SENSITIVE);
  attribute = {CKA_DERIVE, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, object, &attribute, 1), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(p11_->C_GetAttributeValue(1, 99, &attribute, 1), CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(ScriptedCard, DerivesAnObjectThatStaysReadable) {
  card_.derived_secret.bytes = {7, 8};
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, nullptr, 0};
  CK_OBJECT_HANDLE derived = 0;
  ASSERT_EQ(p11_->C_DeriveKey(1, &mechanism, 1, nullptr, 0, &derived), CKR_OK);
  CK_BYTE room[4] = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, room, sizeof room};
  EXPECT_EQ(p11_->C_GetAttributeValue(1, derived, &attribute, 1), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 2u);
  EXPECT_EQ(p11_->C_DestroyObject(1, derived), CKR_OK);
  EXPECT_EQ(card_.FindObject(derived), nullptr);
}

}  // namespace
