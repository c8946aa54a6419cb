// Which algorithms a key supports: its allowed mechanisms, and what the log says of algorithms.
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AllowedMechanismsTest : public SessionTest {
 protected:
  BOOL Signs(TKTokenKeyAlgorithm *algorithm) {
    return [session_ tokenSession:session_
                supportsOperation:TKTokenOperationSignData
                         usingKey:KeyObjectID(kRsaId)
                        algorithm:algorithm];
  }
  void Allow(const std::vector<CK_MECHANISM_TYPE> &mechanisms) {
    card().FindObject(kRsaPublicKey)->SetMechanisms(mechanisms);
  }
  // Mechanisms of no algorithm, the last one excepted.
  static std::vector<CK_MECHANISM_TYPE> Others(size_t count, CK_MECHANISM_TYPE last) {
    std::vector<CK_MECHANISM_TYPE> mechanisms(count, CKM_MD5);
    mechanisms.back() = last;
    return mechanisms;
  }
  // Questions to the algorithm by the comparison alone.
  size_t Questions(AskedAlgorithm *algorithm) {
    const oslog::Disabled off(OS_LOG_TYPE_DEFAULT);
    [algorithm forget];
    Signs(algorithm);
    return [algorithm asked].size();
  }
};

TEST_F(AllowedMechanismsTest, AFailedReadIsLoggedTwiceAndNothingIsCompared) {
  card().FindObject(kRsaPublicKey)->Refuse(CKA_ALLOWED_MECHANISMS, CKR_DEVICE_ERROR);
  AskedAlgorithm *algorithm = Asked(kSecKeyAlgorithmRSASignatureRaw);
  EXPECT_FALSE(Signs(algorithm));
  EXPECT_THAT(Log(),
              ElementsAre("default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
                          "error: PKCS11 function C_GetAttributeValue: is_attr_supported failed: "
                          "rv = CKR_DEVICE_ERROR (0x30)",
                          "error: PKCS11 function get_mechanism_list failed: rv = CKR_DEVICE_ERROR "
                          "(0x30)"));
  EXPECT_EQ(Questions(algorithm), 0u);
}

TEST_F(AllowedMechanismsTest, TwentyMechanismsAreReadToTheLast) {
  Allow(Others(20, CKM_RSA_X_509));
  EXPECT_TRUE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  EXPECT_EQ(Questions(Asked(kSecKeyAlgorithmRSASignatureRaw)), 40u);
}

TEST_F(AllowedMechanismsTest, MoreThanTwentyFailAndNothingIsCompared) {
  for (size_t count : {21u, 22u, 128u}) {
    Forget();
    std::vector<CK_MECHANISM_TYPE> mechanisms = Others(count, CKM_RSA_X_509);
    mechanisms.front() = CKM_RSA_X_509;
    Allow(mechanisms);
    AskedAlgorithm *algorithm = Asked(kSecKeyAlgorithmRSASignatureRaw);
    EXPECT_FALSE(Signs(algorithm));
    EXPECT_THAT(Log(),
                ElementsAre("default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
                            "error: PKCS11 function get_mechanism_list failed: rv = "
                            "CKR_DEVICE_MEMORY (0x31)"));
    EXPECT_EQ(Questions(algorithm), 0u);
  }
}

TEST_F(AllowedMechanismsTest, AnEmptyListSupportsNothingWithoutAWord) {
  Allow({});
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm "
                                 "kSecKeyAlgorithmRSASignatureRaw"));
  EXPECT_EQ(Questions(Asked(kSecKeyAlgorithmRSASignatureRaw)), 0u);
}

TEST_F(AllowedMechanismsTest, AMechanismThatIsNotAllowedIsANoWithoutAWord) {
  Allow({CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS, 0x1003, CKM_ECDSA});
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  EXPECT_EQ(Log().size(), 1u);
  EXPECT_EQ(Calls().size(), 4u);
}

TEST_F(AllowedMechanismsTest, AnAlgorithmWithANameButWithoutAMechanismIsANo) {
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256)))
      << "though the key allows CKM_SHA256_RSA_PKCS";
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm "
                                 "kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256"));
  EXPECT_EQ(Calls().size(), 4u);
}

TEST_F(AllowedMechanismsTest, EachMappedAlgorithmIsSupportedByItsMechanismAlone) {
  const std::pair<SecKeyAlgorithm, CK_MECHANISM_TYPE> kPairs[] = {
      {kSecKeyAlgorithmRSAEncryptionRaw, 0x3},
      {kSecKeyAlgorithmRSASignatureRaw, 0x3},
      {kSecKeyAlgorithmRSAEncryptionPKCS1, 0x1},
      {kSecKeyAlgorithmECDSASignatureDigestX962, 0x1041},
      {kSecKeyAlgorithmECDSASignatureDigestX962SHA1, 0x1042},
      {kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1, 0x1050},
  };
  for (const auto &[algorithm, mechanism] : kPairs) {
    for (CK_MECHANISM_TYPE allowed : {0x1ul, 0x3ul, 0x1041ul, 0x1042ul, 0x1050ul}) {
      Allow({allowed});
      EXPECT_EQ(Signs(Algorithm(algorithm)) != NO, allowed == mechanism)
          << Utf8((NSString *)algorithm) << " " << allowed;
    }
  }
}

TEST_F(AllowedMechanismsTest, AnEncryptionAlgorithmIsNoReasonNotToSign) {
  EXPECT_TRUE(Signs(Algorithm(kSecKeyAlgorithmRSAEncryptionRaw)));
}

TEST_F(AllowedMechanismsTest, TheMechanismIsAskedForAfreshForEveryEntry) {
  Allow({CKM_MD5, CKM_MD5, CKM_MD5, CKM_RSA_PKCS, CKM_MD5});
  EXPECT_EQ(Questions(Asked(kSecKeyAlgorithmRSAEncryptionPKCS1)), 4u * 3u);
  EXPECT_EQ(Questions(AskedString(@"algid:sign:nobody")), 5u * 7u);
}

TEST_F(AllowedMechanismsTest, TheFirstEqualEntryEndsTheComparison) {
  Allow({CKM_RSA_X_509, CKM_RSA_X_509, CKM_RSA_X_509});
  EXPECT_TRUE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm "
                                 "kSecKeyAlgorithmRSASignatureRaw",
                                 "default: RETURN YES."));
}

TEST_F(AllowedMechanismsTest, AllSixtyFourBitsAreCompared) {
  Allow({0x100000003, 0x300000000});
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
}

TEST_F(AllowedMechanismsTest, AnAllOnesEntryEqualsAnAlgorithmWithoutAMechanism) {
  Allow({~0UL});
  EXPECT_TRUE(Signs(AskedString(@"nonsense")));
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm Unknown algorithm",
                                 "default: RETURN YES."));
}

TEST_F(AllowedMechanismsTest, AnUnknownAlgorithmIsLoggedAsSuchAndNotSupported) {
  for (NSString *name : {@"algid:sign:RSA:raw-cc", @"algid:encrypt:RSA:raw-cc", @"nonsense"}) {
    Forget();
    EXPECT_FALSE(Signs(AskedString(name)));
    EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm Unknown algorithm"));
  }
}

TEST_F(AllowedMechanismsTest, TheAlgorithmsNameIsPrivateInTheLog) {
  Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw));
  EXPECT_THAT(PublicLog(),
              ElementsAre("default: (BOOL) TKTokenKeyAlgorithm <private>", "default: RETURN YES."));
  EXPECT_THAT(Formats(), ElementsAre("(BOOL) TKTokenKeyAlgorithm %s", "RETURN YES."));
}

TEST_F(AllowedMechanismsTest, WithTheLogOffNoNameIsLookedUpAndTheAnswerIsTheSame) {
  AskedAlgorithm *algorithm = Asked(kSecKeyAlgorithmRSASignatureRaw);
  {
    const oslog::Disabled off(OS_LOG_TYPE_DEFAULT);
    EXPECT_TRUE(Signs(algorithm));
  }
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(Calls().size(), 4u);
  // Two mechanisms are compared, at two questions each.
  EXPECT_THAT([algorithm asked], ElementsAre("algid:encrypt:RSA:raw", "algid:sign:RSA:raw",
                                             "algid:encrypt:RSA:raw", "algid:sign:RSA:raw"));
}

TEST_F(AllowedMechanismsTest, WithTheLogOffNoResultIsNamed) {
  const oslog::Disabled no_default(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_error(OS_LOG_TYPE_ERROR);
  Allow(Others(21, CKM_RSA_X_509));
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  lindel().Return(scripted::Function::C_FindObjects, CKR_DEVICE_ERROR);
  EXPECT_FALSE(Signs(Algorithm(kSecKeyAlgorithmRSASignatureRaw)));
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
  EXPECT_THAT(Log(), IsEmpty());
}

}  // namespace
}  // namespace token_testing
