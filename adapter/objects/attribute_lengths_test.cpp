// Lengths of attributes, none of which is taken on trust.
#include "adapter/objects/testing/attributes_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(AttributesTest, LengthAfterAFailedReadIsZeroAndNeverMinusOne) {
  const auto object = Add(CKO_DATA, {1, 2, 3});
  std::array<CK_BYTE, 2> small = {9, 9};
  std::array<CK_BYTE, 8> room = {};
  std::array<CK_ATTRIBUTE, 3> attributes = {{{CKA_VALUE, room.data(), room.size()},
                                             {CKA_ID, small.data(), small.size()},
                                             {CKA_VALUE, nullptr, 0}}};
  EXPECT_NE(Get(object, attributes), CKR_OK);
  for (const auto& attribute : attributes) EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small, (std::array<CK_BYTE, 2>{9, 9}));
}

TEST_F(AttributesTest, LengthOfASingleRefusedAttributeIsZeroWhateverTheModuleLeaves) {
  const auto object = Add(CKO_DATA, {1, 2, 3});
  Claim(8);
  for (const CK_RV refusal :
       {CKR_ATTRIBUTE_TYPE_INVALID, CKR_ATTRIBUTE_SENSITIVE, CKR_BUFFER_TOO_SMALL}) {
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE&, CK_ULONG, CK_RV) { return refusal; });
    EXPECT_EQ(Get(object, CKA_VALUE, 8), refusal);
    EXPECT_EQ(length_, 0u);
  }
  module.over = {};
  Claim(5000);
  EXPECT_EQ(Get(object, CKA_VALUE, 8), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length_, 0u) << "more than the room";
  module.over = {};
  EXPECT_EQ(Get(4711, CKA_ID, 8), CKR_OBJECT_HANDLE_INVALID);
  EXPECT_EQ(length_, 8u) << "nothing was read";
}

TEST_F(AttributesTest, SuccessWithALengthThatCannotBeMeantIsAFailure) {
  const auto object = Add(CKO_DATA, {1});
  struct Row {
    CK_ULONG claimed;
    CK_RV result;
  };
  for (const Row& row : {Row{8, CKR_OK}, Row{9, CKR_BUFFER_TOO_SMALL},
                         Row{CK_UNAVAILABLE_INFORMATION, CKR_ATTRIBUTE_TYPE_INVALID}}) {
    module.over = {};
    Claim(row.claimed);
    EXPECT_EQ(Get(object, CKA_ID, 8), row.result) << row.claimed;
    EXPECT_EQ(length_, row.result == CKR_OK ? row.claimed : 0);
  }
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE boundless = {CKA_ID, room.data(), CK_UNAVAILABLE_INFORMATION};
  EXPECT_EQ(Get(object, {&boundless, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(AttributesTest, NoAttributeIsSaidToBeLongerThan64MiB) {
  const auto object = Add(CKO_DATA, {1}, {{CKA_VALUE, {1}}});
  for (CK_ULONG more = 0; more < 2; ++more) {
    module.over = {};
    Claim((CK_ULONG{1} << 26) + more);
    CK_ATTRIBUTE attribute = {CKA_VALUE, nullptr, 0};
    EXPECT_EQ(Get(object, {&attribute, 1}), more == 0 ? CKR_OK : CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(attribute.ulValueLen, more == 0 ? CK_ULONG{1} << 26 : 0);
  }
}

TEST_F(AttributesTest, OneOfSeveralLengthsThatCannotBeMeantSpoilsTheRead) {
  const auto object = Add(CKO_DATA, {1}, {{CKA_VALUE, {5, 6}}});
  faults::ReadsLengthMinusOne(module, CKA_ID);
  std::array<CK_BYTE, 8> room = {};
  std::array<CK_ATTRIBUTE, 2> attributes = {{{CKA_ID, room.data(), 4}, {CKA_VALUE, &room[4], 4}}};
  EXPECT_EQ(Get(object, attributes), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attributes[0].ulValueLen, 0u);
  EXPECT_EQ(attributes[1].ulValueLen, 2u);
}

TEST_F(AttributesTest, UnreadableMechanismsOfTheSlotAreAFailureWithLengthZero) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  for (const CK_ATTRIBUTE_TYPE type : {CKA_ALLOWED_MECHANISMS, CKA_DERIVE}) {
    module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
    EXPECT_EQ(Get(key, type), CKR_DEVICE_ERROR);
    EXPECT_EQ(length_, 0u);
  }
}

TEST_F(AttributesTest, OwnAnswerThatDoesNotFitLeavesTheBufferAlone) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  std::array<CK_BYTE, 15> small = {9};
  CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, small.data(), small.size()};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small[0], 9);
  attribute = {CKA_ALLOWED_MECHANISMS, nullptr, 0};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 16u);
  EXPECT_EQ(Get(key, CKA_ALLOWED_MECHANISMS, 16), CKR_OK);
}

}  // namespace
}  // namespace kelvrin::adapter
