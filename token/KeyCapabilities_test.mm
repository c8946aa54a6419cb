// What a key can do.
#import "token/KeyCapabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "token/testing/card_fixture.h"

namespace {

using scripted::Function;
using testing::ElementsAre;
using token_testing::Constraints;
using token_testing::ErrorLine;
using token_testing::kSession;

class KeyCapabilitiesTest : public testing::Test, protected token_testing::CardFixture {
 protected:
  KeyCapabilitiesTest()
      : public_key_(card_.AddPublicKey({1})),
        key_([[[TKTokenKeychainKey alloc] initWithCertificate:nullptr
                                                     objectID:@"id"] autorelease]) {}

  void SetUsage(CK_BYTE verify, CK_BYTE encrypt, CK_BYTE wrap, CK_BYTE derive) {
    public_key_.Set(CKA_VERIFY, {verify})
        .Set(CKA_ENCRYPT, {encrypt})
        .Set(CKA_WRAP, {wrap})
        .Set(CKA_DERIVE, {derive});
  }

  void Add() { AddCapabilities(key_, p11_, kSession, public_key_.handle, &flags_); }

  scripted::Object &public_key_;
  TKTokenKeychainKey *key_;
  KeyFlags flags_ = {};
};

TEST_F(KeyCapabilitiesTest, EachAttributeIsReadOnceInOrder) {
  SetUsage(1, 1, 1, 1);  // a key that encrypts is asked for CKA_WRAP all the same
  Add();
  EXPECT_THAT(module_.Texts(), ElementsAre("C_GetAttributeValue(7, 11, {0x10a[1024]})",
                                           "C_GetAttributeValue(7, 11, {0x104[1024]})",
                                           "C_GetAttributeValue(7, 11, {0x106[1024]})",
                                           "C_GetAttributeValue(7, 11, {0x10c[1024]})"));
}

// All combinations of the four usage flags.
class UsageTest : public KeyCapabilitiesTest, public testing::WithParamInterface<int> {};

TEST_P(UsageTest, DecidesCapabilitiesConstraintsAndLog) {
  const bool verify = (GetParam() & 1) != 0;
  const bool encrypt = (GetParam() & 2) != 0;
  const bool wrap = (GetParam() & 4) != 0;
  const bool derive = (GetParam() & 8) != 0;
  SetUsage(verify, encrypt, wrap, derive);
  Add();
  EXPECT_EQ([key_ canSign] != NO, verify);
  EXPECT_EQ([key_ canDecrypt] != NO, encrypt || wrap);
  EXPECT_EQ([key_ canPerformKeyExchange] != NO, derive);
  std::string constraints;
  for (const auto &[can, text] : {std::pair(verify, "2=PIN "), std::pair(encrypt || wrap, "3=PIN "),
                                  std::pair(derive, "4=PIN ")}) {
    if (can) constraints += text;
  }
  if (!constraints.empty()) constraints.pop_back();
  EXPECT_EQ(Constraints(key_), constraints);  // empty, and not none, where it can do nothing
  EXPECT_THAT(
      Log(), ElementsAre(verify ? "default: keySign YES." : "default: keySign NO.",
                         encrypt || wrap ? "default: keyDecipher YES." : "default: keyDecipher NO.",
                         derive ? "default: keyAgreement YES." : "default: keyAgreement NO."));
}

INSTANTIATE_TEST_SUITE_P(AllFlags, UsageTest, testing::Range(0, 16));

TEST_F(KeyCapabilitiesTest, CapabilitiesThatTheKeyItemHadAreTakenAway) {
  [key_ setCanSign:YES];
  [key_ setCanDecrypt:YES];
  [key_ setCanPerformKeyExchange:YES];
  [key_ setConstraints:@{@2 : @"PIN", @9 : @"old"}];
  SetUsage(0, 0, 0, 0);
  Add();
  EXPECT_FALSE([key_ canSign]);
  EXPECT_FALSE([key_ canDecrypt]);
  EXPECT_FALSE([key_ canPerformKeyExchange]);
  EXPECT_EQ(Constraints(key_), "");
}

TEST_F(KeyCapabilitiesTest, NothingElseOfTheKeyItemIsTouched) {
  SetUsage(1, 1, 1, 1);
  Add();
  EXPECT_EQ([key_ label], nil);
  EXPECT_FALSE([key_ isSuitableForLogin]);
}

TEST_F(KeyCapabilitiesTest, OnlyTheValueOneMeansYes) {
  for (const CK_BYTE value : scripted::Bytes{0, 2, 3, 0x80, 0xFF}) {
    SetUsage(value, value, value, value);
    Add();
    EXPECT_FALSE([key_ canSign]) << int{value};
    EXPECT_FALSE([key_ canDecrypt]) << int{value};
    EXPECT_FALSE([key_ canPerformKeyExchange]) << int{value};
    EXPECT_EQ(Constraints(key_), "") << int{value};
    EXPECT_EQ(flags_.sign, value);
  }
}

TEST_F(KeyCapabilitiesTest, EmptyAttributeMeansNo) {
  SetUsage(1, 1, 1, 1);
  Add();
  for (CK_ATTRIBUTE_TYPE type : {CKA_VERIFY, CKA_ENCRYPT, CKA_WRAP, CKA_DERIVE}) {
    public_key_.Set(type, {});
  }
  Add();
  EXPECT_EQ(Constraints(key_), "");
}

TEST_F(KeyCapabilitiesTest, PublicKeyDecidesAndThePrivateKeyIsNeverAsked) {
  SetUsage(1, 0, 0, 0);
  scripted::Object &private_key = card_.AddPrivateKey({1});
  for (CK_ATTRIBUTE_TYPE type : {CKA_SIGN, CKA_DECRYPT, CKA_UNWRAP, CKA_DERIVE}) {
    private_key.SetFlag(type, true);
    public_key_.SetFlag(type, type == CKA_SIGN || type == CKA_DECRYPT || type == CKA_UNWRAP);
  }
  Add();
  EXPECT_EQ(Constraints(key_), "2=PIN");
  EXPECT_EQ(module_.Count(Function::C_GetAttributeValue), 4u);
  for (const scripted::Call &call : module_.calls()) {
    EXPECT_EQ(call.arguments[1].number, public_key_.handle);
  }
}

TEST_F(KeyCapabilitiesTest, FailedReadKeepsTheFlagOfTheKeyBefore) {
  for (const CK_BBOOL before : scripted::Bytes{CK_TRUE, CK_FALSE}) {
    flags_ = {before, before, before, before};
    module_.Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR);
    recorder_.clear();
    Add();
    EXPECT_EQ(Constraints(key_), before ? "2=PIN 3=PIN 4=PIN" : "");
    const std::string failure =
        ErrorLine("C_GetAttributeValue: is_attr_supported", "CKR_DEVICE_ERROR (0x30)");
    const std::string answer = before ? "YES." : "NO.";
    EXPECT_THAT(Log(), ElementsAre(failure, "default: keySign " + answer, failure, failure,
                                   "default: keyDecipher " + answer, failure,
                                   "default: keyAgreement " + answer));
  }
}

TEST_F(KeyCapabilitiesTest, EachFlagIsKeptByItself) {
  const CK_ATTRIBUTE_TYPE types[] = {CKA_VERIFY, CKA_ENCRYPT, CKA_WRAP, CKA_DERIVE};
  const char *const constraints[] = {"2=PIN", "3=PIN", "3=PIN", "4=PIN"};
  for (size_t i = 0; i < std::size(types); ++i) {
    flags_ = {CK_TRUE, CK_TRUE, CK_TRUE, CK_TRUE};
    SetUsage(0, 0, 0, 0);
    public_key_.attributes.erase(types[i]);
    Add();
    EXPECT_EQ(Constraints(key_), constraints[i]) << types[i];
  }
}

TEST_F(KeyCapabilitiesTest, FlagsThatWereReadGoIntoTheRecord) {
  SetUsage(1, 0, 1, 0);
  flags_ = {0, 1, 0, 1};
  Add();
  EXPECT_EQ(flags_.sign, 1);
  EXPECT_EQ(flags_.encrypt, 0);
  EXPECT_EQ(flags_.wrap, 1);
  EXPECT_EQ(flags_.derive, 0);
}

TEST_F(KeyCapabilitiesTest, WithoutTheLogTheCapabilitiesAreTheSame) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  SetUsage(1, 1, 0, 1);
  Add();
  EXPECT_EQ(Constraints(key_), "2=PIN 3=PIN 4=PIN");
  EXPECT_THAT(Log(), testing::IsEmpty());
}

}  // namespace
