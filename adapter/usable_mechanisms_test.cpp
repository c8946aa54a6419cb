#include "adapter/usable_mechanisms.h"

#include <gtest/gtest.h>

namespace kelvrin::adapter {
namespace {

Rules Without(Rule rule) {
  Rules rules = Rules::Extension();
  rules.SwitchOff(rule);
  return rules;
}

const Rules kAll = Rules::Extension();

TEST(UsableMechanismsTest, OnlyWhatTheSlotOffersIsNamed) {
  EXPECT_TRUE(UsableMechanisms(kAll, CKK_RSA, {}).empty());
  EXPECT_TRUE(UsableMechanisms(kAll, CKK_RSA, {CKM_ECDSA}).empty());
  EXPECT_TRUE(UsableMechanisms(kAll, CKK_DSA, {CKM_RSA_PKCS, CKM_ECDSA, CKM_DSA}).empty());
  EXPECT_EQ(UsableMechanisms(kAll, CKK_RSA, {CKM_RSA_X_509}), Mechanisms{CKM_RSA_X_509});
}

TEST(UsableMechanismsTest, RawRsaIsNamedWherePkcs1ServesIt) {
  const Mechanisms both = {CKM_RSA_X_509, CKM_RSA_PKCS};
  EXPECT_EQ(UsableMechanisms(kAll, CKK_RSA, {CKM_RSA_PKCS}), both);
  EXPECT_EQ(UsableMechanisms(kAll, CKK_RSA, {CKM_RSA_PKCS, CKM_RSA_X_509}), both);
  EXPECT_EQ(UsableMechanisms(Without(Rule::kMissingRawRsa), CKK_RSA, {CKM_RSA_PKCS}),
            Mechanisms{CKM_RSA_PKCS});
}

TEST(UsableMechanismsTest, FinishedSha1DigestsAreServedByPlainEcdsa) {
  EXPECT_EQ(UsableMechanisms(kAll, CKK_EC, {CKM_ECDSA, CKM_ECDH1_DERIVE}),
            (Mechanisms{CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE}));
  EXPECT_EQ(UsableMechanisms(Without(Rule::kEcdsa), CKK_EC, {CKM_ECDSA}), Mechanisms{CKM_ECDSA});
  const Mechanisms both = {CKM_ECDSA, CKM_ECDSA_SHA1};
  EXPECT_EQ(UsableMechanisms(Without(Rule::kEcdsa), CKK_EC, both), both);
}

TEST(UsableMechanismsTest, ModulesOwnEcdsaWithSha1DoesNotServeFinishedDigests) {
  EXPECT_TRUE(UsableMechanisms(kAll, CKK_EC, {CKM_ECDSA_SHA1}).empty());
  EXPECT_EQ(UsableMechanisms(Without(Rule::kEcdsa), CKK_EC, {CKM_ECDSA_SHA1}),
            Mechanisms{CKM_ECDSA_SHA1});
}

TEST(CompleteMechanismsTest, ModulesOwnEcdsaWithSha1IsLeftOutWithoutPlainEcdsa) {
  const Mechanisms own = {CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE};
  EXPECT_EQ(CompleteMechanisms(kAll, own), Mechanisms{CKM_ECDH1_DERIVE});
  EXPECT_EQ(CompleteMechanisms(Without(Rule::kEcdsa), own), own);
  const Mechanisms both = {CKM_ECDSA_SHA1, CKM_ECDSA};
  EXPECT_EQ(CompleteMechanisms(kAll, both), both);
}

TEST(CompleteMechanismsTest, ListThatLacksWhatCanBeServedIsCompleted) {
  EXPECT_EQ(CompleteMechanisms(kAll, {CKM_RSA_PKCS}), (Mechanisms{CKM_RSA_PKCS, CKM_RSA_X_509}));
  EXPECT_EQ(CompleteMechanisms(kAll, {CKM_ECDSA}), (Mechanisms{CKM_ECDSA, CKM_ECDSA_SHA1}));
}

TEST(CompleteMechanismsTest, NothingIsAddedThatCannotBeServed) {
  for (const Mechanisms& own :
       {Mechanisms{CKM_SHA256_RSA_PKCS}, Mechanisms{CKM_RSA_X_509},
        Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}, Mechanisms{CKM_ECDH1_DERIVE}}) {
    EXPECT_EQ(CompleteMechanisms(kAll, own), own);
  }
  EXPECT_EQ(CompleteMechanisms(Rules::Standard(), {CKM_RSA_PKCS, CKM_ECDSA}),
            (Mechanisms{CKM_RSA_PKCS, CKM_ECDSA}));
}

TEST(CompleteMechanismsTest, FullListStaysAsLongAsTheExtensionsRoom) {
  Mechanisms own(19, CKM_SHA256_RSA_PKCS);
  own.push_back(CKM_RSA_PKCS);
  EXPECT_EQ(CompleteMechanisms(kAll, own), own);
}

}  // namespace
}  // namespace kelvrin::adapter
