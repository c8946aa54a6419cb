#include "adapter/attributes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "adapter/object_reading.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

using Bytes = FakeModule::Bytes;
using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

class AttributesTest : public testing::Test {
 protected:
  CK_OBJECT_HANDLE AddKey(CK_OBJECT_CLASS object_class, CK_KEY_TYPE type,
                          FakeModule::Object more = {}) {
    more[CKA_CLASS] = FakeModule::Number(object_class);
    more[CKA_KEY_TYPE] = FakeModule::Number(type);
    return fake_.Add(std::move(more));
  }
  CK_RV Get(CK_OBJECT_HANDLE object, std::span<CK_ATTRIBUTE> attributes) {
    return GetAttributes(token_objects_, session_, object, attributes);
  }
  // One flag of an object, read as the extension reads it, into a large buffer.
  int Flag(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    std::array<CK_BYTE, 1024> buffer = {};
    CK_ATTRIBUTE attribute = {type, buffer.data(), buffer.size()};
    EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
    EXPECT_EQ(attribute.ulValueLen, 1u);
    return buffer[0];
  }
  Mechanisms Allowed(CK_OBJECT_HANDLE object) {
    Mechanisms list(128);
    CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, list.data(), 1024};
    EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
    list.resize(attribute.ulValueLen / sizeof(CK_MECHANISM_TYPE));
    return list;
  }
  static Bytes List(const Mechanisms& mechanisms) {
    Bytes bytes(mechanisms.size() * sizeof(CK_MECHANISM_TYPE));
    std::memcpy(bytes.data(), mechanisms.data(), bytes.size());
    return bytes;
  }

  // The slot's mechanisms change, as with another token.
  void Offer(const Mechanisms& mechanisms) {
    fake_.slots[0].mechanisms = mechanisms;
    token_objects_.Forget();
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  CK_SESSION_HANDLE session_ = 1;
  Rules rules_ = Rules::Extension();
  TokenObjects token_objects_{functions_, rules_, 7};
};

TEST_F(AttributesTest, LengthAfterAFailedReadIsZeroAndNeverMinusOne) {
  const auto object = fake_.Add({{CKA_LABEL, {'a', 'b', 'c'}}});
  std::array<CK_BYTE, 2> small = {9, 9};
  std::array<CK_BYTE, 8> room = {};
  std::array<CK_ATTRIBUTE, 3> attributes = {{{CKA_ID, room.data(), room.size()},
                                             {CKA_LABEL, small.data(), small.size()},
                                             {CKA_ID, nullptr, 0}}};
  EXPECT_NE(Get(object, attributes), CKR_OK);
  for (const auto& attribute : attributes) EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small, (std::array<CK_BYTE, 2>{9, 9}));
}

TEST_F(AttributesTest, LengthBeyondTheRoomAfterAFailedReadIsZero) {
  fake_.unreadable_length = 5000;
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, room.data(), room.size()};
  EXPECT_EQ(Get(fake_.Add({}), {&attribute, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attribute.ulValueLen, 0u);
}

TEST_F(AttributesTest, LengthThatTheModuleLeavesAloneStays) {
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, room.data(), room.size()};
  EXPECT_EQ(Get(4711, {&attribute, 1}), CKR_OBJECT_HANDLE_INVALID);
  EXPECT_EQ(attribute.ulValueLen, 8u);
}

TEST_F(AttributesTest, SuccessThatClaimsMoreThanTheRoomIsAFailure) {
  fake_.claimed_excess = 100;
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, room.data(), room.size()};
  EXPECT_EQ(Get(fake_.Add({{CKA_LABEL, {'a'}}}), {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_FALSE(ReadAttribute(functions_, 1, fake_.Add({{CKA_ID, {1}}}), CKA_ID, 4));
}

// Who reads a length after a success uses it.
TEST_F(AttributesTest, SuccessThatClaimsTheLengthMinusOneIsAFailure) {
  const auto object = fake_.Add({{CKA_ID, {}}});
  fake_.claimed_excess = CK_UNAVAILABLE_INFORMATION;
  for (const Rules& rules : {Rules::Extension(), Rules::Standard()}) {
    rules_ = rules;
    const bool has_zero = rules.Has(Rule::kFailedLengths);
    std::array<CK_BYTE, 8> room = {};
    for (CK_BYTE* const pointer : {room.data(), static_cast<CK_BYTE*>(nullptr)}) {
      CK_ATTRIBUTE attribute = {CKA_ID, pointer, room.size()};
      EXPECT_EQ(Get(object, {&attribute, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
      EXPECT_EQ(attribute.ulValueLen, has_zero ? 0 : CK_UNAVAILABLE_INFORMATION);
    }
    CK_ATTRIBUTE boundless = {CKA_ID, room.data(), CK_UNAVAILABLE_INFORMATION};
    EXPECT_EQ(Get(object, {&boundless, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
  }
}

TEST_F(AttributesTest, UnreadableMechanismsOfTheSlotAreAFailureWithLengthZero) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  for (const CK_ATTRIBUTE_TYPE type : {CKA_ALLOWED_MECHANISMS, CKA_DERIVE}) {
    fake_.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
    std::array<CK_BYTE, 1024> buffer = {};
    CK_ATTRIBUTE attribute = {type, buffer.data(), buffer.size()};
    EXPECT_EQ(Get(key, {&attribute, 1}), CKR_DEVICE_ERROR);
    EXPECT_EQ(attribute.ulValueLen, 0u);
  }
}

TEST_F(AttributesTest, OwnAnswerThatDoesNotFitLeavesTheBufferAlone) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  std::array<CK_BYTE, 15> small;
  small.fill(9);
  CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, small.data(), small.size()};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small[0], 9);
  attribute = {CKA_ALLOWED_MECHANISMS, nullptr, 0};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 16u);
}

TEST_F(AttributesTest, PublicKeyWithoutListIsAnsweredFromItsTypeAndTheSlot) {
  EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_RSA)), (Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}));
  const Mechanisms ec = {CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE};
  EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_EC)), ec);
  EXPECT_TRUE(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_DSA)).empty());
  Offer({CKM_RSA_PKCS, CKM_ECDSA});
  EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_RSA)), (Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}));
  EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_EC)), (Mechanisms{CKM_ECDSA, CKM_ECDSA_SHA1}));
}

TEST_F(AttributesTest, ListOfOneToTwentyMechanismsIsPassedOn) {
  for (const std::size_t size : {1u, 20u}) {
    const Mechanisms own(size, CKM_RSA_PKCS_OAEP);
    const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA, {{CKA_ALLOWED_MECHANISMS, List(own)}});
    EXPECT_EQ(Allowed(key), own);
  }
}

TEST_F(AttributesTest, EmptyTooLongOrBrokenListIsReplaced) {
  const Mechanisms expected = {CKM_RSA_X_509, CKM_RSA_PKCS};
  for (const Bytes& list : {Bytes(), List(Mechanisms(21, CKM_RSA_PKCS)), Bytes(12, 1),
                            List(Mechanisms(200, CKM_RSA_PKCS))}) {
    EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_RSA, {{CKA_ALLOWED_MECHANISMS, list}})), expected);
  }
}

TEST_F(AttributesTest, ListOfAPrivateKeyIsTheModules) {
  const auto key = AddKey(CKO_PRIVATE_KEY, CKK_RSA, {{CKA_ALLOWED_MECHANISMS, {}}});
  EXPECT_TRUE(Allowed(key).empty());
}

TEST_F(AttributesTest, EcPublicKeyNeitherEncryptsNorWrapsAndDerivesAsTheSlotDoes) {
  const Bytes yes = FakeModule::Flag(true);
  const auto key =
      AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_ENCRYPT, yes}, {CKA_WRAP, yes}, {CKA_VERIFY, yes}});
  EXPECT_EQ(Flag(key, CKA_ENCRYPT), 0);
  EXPECT_EQ(Flag(key, CKA_WRAP), 0);
  EXPECT_EQ(Flag(key, CKA_VERIFY), 1);
  EXPECT_EQ(Flag(key, CKA_DERIVE), 1);
  Offer({CKM_ECDSA});
  EXPECT_EQ(Flag(key, CKA_DERIVE), 0);
}

TEST_F(AttributesTest, FlagsOfOtherObjectsAreTheModules) {
  const Bytes yes = FakeModule::Flag(true);
  const FakeModule::Object flags = {{CKA_ENCRYPT, yes}, {CKA_WRAP, yes}, {CKA_DERIVE, yes}};
  for (const auto object : {AddKey(CKO_PUBLIC_KEY, CKK_RSA, flags),
                            AddKey(CKO_PRIVATE_KEY, CKK_EC, flags), fake_.Add(flags)}) {
    EXPECT_EQ(Flag(object, CKA_ENCRYPT), 1);
    EXPECT_EQ(Flag(object, CKA_WRAP), 1);
    EXPECT_EQ(Flag(object, CKA_DERIVE), 1);
  }
}

TEST_F(AttributesTest, MixedTemplateKeepsItsOrderAndItsFailures) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_ID, {5, 6}}});
  std::array<std::array<CK_BYTE, 64>, 4> room = {};
  std::array<CK_ATTRIBUTE, 4> attributes = {{{CKA_ENCRYPT, room[0].data(), 64},
                                             {CKA_ID, room[1].data(), 64},
                                             {CKA_DERIVE, room[2].data(), 64},
                                             {CKA_LABEL, room[3].data(), 64}}};
  EXPECT_EQ(Get(key, attributes), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attributes[0].ulValueLen, 1u);
  EXPECT_EQ(attributes[1].ulValueLen, 2u);
  EXPECT_EQ(attributes[2].ulValueLen, 1u);
  EXPECT_EQ(attributes[3].ulValueLen, 0u);
  EXPECT_EQ(attributes[1].type, CKA_ID);
  EXPECT_EQ(room[1][1], 6);
  EXPECT_EQ(room[2][0], CK_TRUE);
}

TEST_F(AttributesTest, LengthOfASingleRefusedAttributeThatTheModuleLeavesAloneIsZero) {
  fake_.unreadable_length = 8;
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, room.data(), room.size()};
  EXPECT_EQ(Get(fake_.Add({}), {&attribute, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attribute.ulValueLen, 0u);
}

TEST_F(AttributesTest, AbsurdLengthIsNotHandedOn) {
  fake_.claimed_excess = CK_ULONG{1} << 40;
  CK_ATTRIBUTE attribute = {CKA_ID, nullptr, 0};
  EXPECT_EQ(Get(fake_.Add({{CKA_ID, {1}}}), {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, 0u);
}

TEST_F(AttributesTest, CertificatesLabelIsAscii) {
  const Bytes label = {'M', 0xc3, 0xbc, 'l', 'l', 'e', 'r'};
  const auto object =
      fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_CERTIFICATE)}, {CKA_LABEL, label}});
  std::array<char, 64> room = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, room.data(), room.size()};
  EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(std::string(room.data(), attribute.ulValueLen), "Mueller");
  attribute = {CKA_LABEL, nullptr, 0};
  EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 7u);
}

TEST_F(AttributesTest, LabelsInAsciiAndOfOtherObjectsAreTheModules) {
  const Bytes label = {'M', 0xc3, 0xbc};
  const auto key = AddKey(CKO_PRIVATE_KEY, CKK_RSA, {{CKA_LABEL, label}});
  const auto plain =
      fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_CERTIFICATE)}, {CKA_LABEL, {'M', '?', 'l'}}});
  std::array<CK_BYTE, 64> room = {};
  for (const auto object : {key, plain}) {
    CK_ATTRIBUTE attribute = {CKA_LABEL, room.data(), room.size()};
    EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
    EXPECT_EQ(Bytes(room.begin(), room.begin() + 3), fake_.objects[object][CKA_LABEL]);
  }
}

TEST_F(AttributesTest, RulesThatAreOffLeaveTheModulesAnswers) {
  const Bytes yes = FakeModule::Flag(true);
  const auto key =
      AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_ENCRYPT, yes}, {CKA_WRAP, yes}, {CKA_DERIVE, yes}});
  const auto certificate =
      fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_CERTIFICATE)}, {CKA_LABEL, {0xc3, 0xbc}}});
  rules_ = Rules::Standard();
  EXPECT_EQ(Flag(key, CKA_ENCRYPT), 1);
  EXPECT_EQ(Flag(key, CKA_WRAP), 1);
  Offer({});
  EXPECT_EQ(Flag(key, CKA_DERIVE), 1);
  std::array<CK_BYTE, 1024> room = {};
  CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, room.data(), room.size()};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
  attribute = {CKA_LABEL, room.data(), room.size()};
  EXPECT_EQ(Get(certificate, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(room[0], 0xc3);
}

TEST_F(AttributesTest, LengthOfARefusedAttributeIsTheModulesWithoutTheRule) {
  rules_.SwitchOff(Rule::kFailedLengths);
  fake_.unreadable_length = 0;
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, room.data(), room.size()};
  EXPECT_EQ(Get(fake_.Add({}), {&attribute, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attribute.ulValueLen, 0u);
}

TEST_F(AttributesTest, NumbersAreReadWithExactlyTheirRoom) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  EXPECT_EQ(ReadNumber(functions_, 1, key, CKA_KEY_TYPE), CKK_EC);
  EXPECT_FALSE(ReadNumber(functions_, 1, key, CKA_MODULUS_BITS));
  EXPECT_FALSE(ReadNumber(functions_, 1, fake_.Add({{CKA_CLASS, {1}}}), CKA_CLASS));
}

}  // namespace
}  // namespace kelvrin::adapter
