#include "adapter/objects/allowed_mechanisms.h"

#include <gtest/gtest.h>

#include <optional>

namespace kelvrin::adapter {
namespace {

// A list before and after; `off`: a rule that is switched off.
struct Row {
  Mechanisms list;
  Mechanisms expected;
  std::optional<Rule> off = std::nullopt;

  Rules rules() const {
    Rules rules;
    if (off) rules.SwitchOff(*off);
    return rules;
  }
};

constexpr auto kSha = CKM_ECDSA_SHA1;

TEST(UsableMechanismsTest, RsaKeysHaveRawAndPkcs1WherePkcs1ServesBoth) {
  const Mechanisms both = {CKM_RSA_X_509, CKM_RSA_PKCS};
  for (const Row& row : {Row{{}, {}}, Row{{CKM_ECDSA}, {}}, Row{{CKM_RSA_X_509}, {CKM_RSA_X_509}},
                         Row{{CKM_RSA_PKCS}, both}, Row{{CKM_RSA_PKCS, CKM_RSA_X_509}, both},
                         Row{{CKM_RSA_PKCS}, {CKM_RSA_PKCS}, Rule::kMissingRawRsa},
                         Row{{CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS}, both, Rule::kEcdsa}}) {
    EXPECT_EQ(UsableMechanisms(row.rules(), CKK_RSA, row.list), row.expected)
        << testing::PrintToString(row.list) << " without rule " << testing::PrintToString(row.off);
  }
}

TEST(UsableMechanismsTest, EcKeysHaveFinishedSha1DigestsByPlainEcdsaAlone) {
  for (const Row& row : {Row{{CKM_RSA_PKCS}, {}}, Row{{CKM_ECDH1_DERIVE}, {CKM_ECDH1_DERIVE}},
                         Row{{CKM_ECDSA, CKM_ECDH1_DERIVE}, {CKM_ECDSA, kSha, CKM_ECDH1_DERIVE}},
                         // The module's own would hash the digest again.
                         Row{{kSha}, {}}, Row{{kSha}, {kSha}, Rule::kEcdsa},
                         Row{{CKM_ECDSA}, {CKM_ECDSA}, Rule::kEcdsa},
                         Row{{CKM_ECDSA, kSha}, {CKM_ECDSA, kSha}, Rule::kEcdsa}}) {
    EXPECT_EQ(UsableMechanisms(row.rules(), CKK_EC, row.list), row.expected)
        << testing::PrintToString(row.list) << " without rule " << testing::PrintToString(row.off);
  }
}

TEST(UsableMechanismsTest, OtherKeysHaveNone) {
  EXPECT_TRUE(UsableMechanisms({}, CKK_DSA, {CKM_RSA_PKCS, CKM_ECDSA, CKM_DSA}).empty());
}

TEST(CompleteMechanismsTest, ListGetsWhatCanBeServedAndLosesWhatCannot) {
  const Mechanisms both = {CKM_RSA_PKCS, CKM_ECDSA};
  for (const Row& row :
       {Row{{CKM_RSA_PKCS}, {CKM_RSA_PKCS, CKM_RSA_X_509}}, Row{{CKM_ECDSA}, {CKM_ECDSA, kSha}},
        Row{{CKM_RSA_PKCS}, {CKM_RSA_PKCS}, Rule::kMissingRawRsa},
        Row{both, {CKM_RSA_PKCS, CKM_ECDSA, CKM_RSA_X_509}, Rule::kEcdsa},
        Row{both, {CKM_RSA_PKCS, CKM_ECDSA, kSha}, Rule::kMissingRawRsa},
        Row{{kSha, CKM_ECDH1_DERIVE}, {CKM_ECDH1_DERIVE}},
        Row{{kSha, CKM_ECDH1_DERIVE}, {kSha, CKM_ECDH1_DERIVE}, Rule::kEcdsa},
        Row{{kSha, CKM_ECDSA}, {kSha, CKM_ECDSA}}, Row{{CKM_RSA_X_509}, {CKM_RSA_X_509}},
        Row{{CKM_RSA_X_509, CKM_RSA_PKCS}, {CKM_RSA_X_509, CKM_RSA_PKCS}},
        Row{{CKM_SHA256_RSA_PKCS}, {CKM_SHA256_RSA_PKCS}}}) {
    EXPECT_EQ(CompleteMechanisms(row.rules(), row.list), row.expected)
        << testing::PrintToString(row.list) << " without rule " << testing::PrintToString(row.off);
  }
}

TEST(CompleteMechanismsTest, ListNeverHasMoreThanTwentyEntries) {
  Mechanisms own(18, CKM_SHA256_RSA_PKCS);
  own.push_back(CKM_RSA_PKCS);
  Mechanisms completed = own;
  completed.push_back(CKM_RSA_X_509);
  EXPECT_EQ(CompleteMechanisms({}, own), completed);
  own.push_back(CKM_SHA256_RSA_PKCS);
  EXPECT_EQ(CompleteMechanisms({}, own), own);
}

}  // namespace
}  // namespace kelvrin::adapter
