// What the log calls an algorithm.
#include <dlfcn.h>

#include <set>

#import "token/KeyAlgorithms.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

struct Row {
  const char *name;
  CK_MECHANISM_TYPE mechanism;
};

constexpr CK_MECHANISM_TYPE kNone = ~CK_MECHANISM_TYPE{0};

// All names in the order in which they are tried.
constexpr Row kRows[] = {
    {"kSecKeyAlgorithmECIESEncryptionStandardX963SHA1AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardX963SHA224AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardX963SHA256AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardX963SHA384AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardX963SHA512AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA224AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA256AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA384AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionStandardVariableIVX963SHA512AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA224AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA256AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA384AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorVariableIVX963SHA512AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorX963SHA1AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorX963SHA224AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorX963SHA256AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorX963SHA384AESGCM", kNone},
    {"kSecKeyAlgorithmECIESEncryptionCofactorX963SHA512AESGCM", kNone},
    {"kSecKeyAlgorithmECDSASignatureRFC4754", kNone},
    {"kSecKeyAlgorithmECDSASignatureDigestX962", 0x1041},
    {"kSecKeyAlgorithmECDSASignatureDigestX962SHA1", 0x1042},
    {"kSecKeyAlgorithmECDSASignatureDigestX962SHA224", kNone},
    {"kSecKeyAlgorithmECDSASignatureDigestX962SHA256", kNone},
    {"kSecKeyAlgorithmECDSASignatureDigestX962SHA384", kNone},
    {"kSecKeyAlgorithmECDSASignatureDigestX962SHA512", kNone},
    {"kSecKeyAlgorithmECDSASignatureMessageX962SHA1", kNone},
    {"kSecKeyAlgorithmECDSASignatureMessageX962SHA224", kNone},
    {"kSecKeyAlgorithmECDSASignatureMessageX962SHA256", kNone},
    {"kSecKeyAlgorithmECDSASignatureMessageX962SHA384", kNone},
    {"kSecKeyAlgorithmECDSASignatureMessageX962SHA512", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactor", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandard", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA1", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1", 0x1050},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA224", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA256", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA384", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeCofactorX963SHA512", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA224", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA256", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA384", kNone},
    {"kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA512", kNone},
    {"kSecKeyAlgorithmRSAEncryptionRaw", 0x3},
    {"kSecKeyAlgorithmRSAEncryptionPKCS1", 0x1},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA1", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA224", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA256", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA384", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA512", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA1AESGCM", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA224AESGCM", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA256AESGCM", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA384AESGCM", kNone},
    {"kSecKeyAlgorithmRSAEncryptionOAEPSHA512AESGCM", kNone},
    {"kSecKeyAlgorithmRSASignatureRaw", 0x3},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15Raw", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA1", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA224", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA384", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA512", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA1", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA224", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA384", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA512", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPSSSHA1", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPSSSHA224", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPSSSHA256", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPSSSHA384", kNone},
    {"kSecKeyAlgorithmRSASignatureDigestPSSSHA512", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePSSSHA1", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePSSSHA224", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePSSSHA256", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePSSSHA384", kNone},
    {"kSecKeyAlgorithmRSASignatureMessagePSSSHA512", kNone},
};

// The platform's constant of a name.
SecKeyAlgorithm Constant(const char *name) {
  const auto *constant = static_cast<const SecKeyAlgorithm *>(dlsym(RTLD_DEFAULT, name));
  return constant == nullptr ? nullptr : *constant;
}

class AlgorithmNamesTest : public FoundationTest {};

TEST_F(AlgorithmNamesTest, SeventySixConstantsAreNamedAsTheyAreSpelt) {
  ASSERT_EQ(std::size(kRows), 76u);
  for (const Row &row : kRows) {
    ASSERT_NE(Constant(row.name), nullptr) << row.name;
    EXPECT_STREQ(algo_to_str(Algorithm(Constant(row.name))), row.name);
  }
}

TEST_F(AlgorithmNamesTest, TheyAreTriedInOrderAndNoneTwice) {
  AskedAlgorithm *unknown = AskedString(@"algid:sign:nobody");
  EXPECT_STREQ(algo_to_str(unknown), "Unknown algorithm");
  std::vector<std::string> expected;
  for (const Row &row : kRows) expected.push_back(Utf8((NSString *)Constant(row.name)));
  EXPECT_EQ([unknown asked], expected);
  EXPECT_EQ(std::set<std::string>(expected.begin(), expected.end()).size(), expected.size());
}

TEST_F(AlgorithmNamesTest, TheFirstMatchEndsTheQuestions) {
  for (size_t i = 0; i < std::size(kRows); ++i) {
    AskedAlgorithm *algorithm = Asked(Constant(kRows[i].name));
    algo_to_str(algorithm);
    EXPECT_EQ([algorithm asked].size(), i + 1) << kRows[i].name;
  }
}

TEST_F(AlgorithmNamesTest, OnlySixOfThemHaveAMechanism) {
  size_t mapped = 0;
  for (const Row &row : kRows) {
    EXPECT_EQ(get_mechanism(Algorithm(Constant(row.name))), row.mechanism) << row.name;
    if (row.mechanism != kNone) ++mapped;
  }
  EXPECT_EQ(mapped, 6u);
}

TEST_F(AlgorithmNamesTest, AnythingElseIsUnknown) {
  EXPECT_STREQ(algo_to_str(AskedString(@"algid:sign:RSA:raw-cc")), "Unknown algorithm");
  EXPECT_STREQ(algo_to_str(AskedString(@"algid:encrypt:RSA:raw-cc")), "Unknown algorithm");
  EXPECT_STREQ(algo_to_str(AskedString(@"")), "Unknown algorithm");
  EXPECT_STREQ(algo_to_str(nil), "Unknown algorithm");
}

TEST_F(AlgorithmNamesTest, NamesOutliveTheAlgorithm) {
  const char *name = nullptr;
  @autoreleasepool {
    name = algo_to_str(Algorithm(kSecKeyAlgorithmRSASignatureRaw));
  }
  EXPECT_STREQ(name, "kSecKeyAlgorithmRSASignatureRaw");
}

}  // namespace
}  // namespace token_testing
