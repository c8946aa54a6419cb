// Which mechanism an algorithm has.
#import "token/KeyAlgorithms.h"

#import "platform/linux/ctk/TKHostInterface.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using testing::ElementsAre;

class MechanismTest : public FoundationTest {};

TEST_F(MechanismTest, SixAlgorithmsHaveAMechanism) {
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmRSAEncryptionRaw)), 0x3u);
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmRSASignatureRaw)), 0x3u);
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmRSAEncryptionPKCS1)), 0x1u);
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmECDSASignatureDigestX962)), 0x1041u);
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmECDSASignatureDigestX962SHA1)), 0x1042u);
  EXPECT_EQ(get_mechanism(Algorithm(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1)), 0x1050u);
}

TEST_F(MechanismTest, NoMechanismHasAllBitsSet) {
  EXPECT_EQ(get_mechanism(AskedString(@"algid:sign:nobody")), 0xFFFFFFFFFFFFFFFFu);
  EXPECT_EQ(get_mechanism(nil), 0xFFFFFFFFFFFFFFFFu);
}

TEST_F(MechanismTest, TheWordOrderVariantsOfRawRsaHaveNone) {
  EXPECT_EQ(get_mechanism(AskedString(@"algid:sign:RSA:raw-cc")), kNoMechanism);
  EXPECT_EQ(get_mechanism(AskedString(@"algid:encrypt:RSA:raw-cc")), kNoMechanism);
}

TEST_F(MechanismTest, RawSignaturesAreAskedForTwiceInTheSameOrderAsEver) {
  AskedAlgorithm *unknown = AskedString(@"algid:sign:nobody");
  get_mechanism(unknown);
  EXPECT_THAT(
      [unknown asked],
      ElementsAre("algid:encrypt:RSA:raw", "algid:sign:RSA:raw", "algid:encrypt:RSA:PKCS1",
                  "algid:sign:RSA:raw", "algid:sign:ECDSA:digest-X962",
                  "algid:sign:ECDSA:digest-X962:SHA1", "algid:keyexchange:ECDH:KDFX963:SHA1"));
}

TEST_F(MechanismTest, TheFirstYesDecidesAndNothingIsAskedAfterIt) {
  const CK_MECHANISM_TYPE kByQuestion[] = {0x3, 0x3, 0x1, 0x3, 0x1041, 0x1042, 0x1050};
  AskedAlgorithm *algorithm = AskedString(@"algid:sign:nobody");
  for (size_t n = 1; n <= std::size(kByQuestion); ++n) {
    [algorithm sayYesTo:n];
    EXPECT_EQ(get_mechanism(algorithm), kByQuestion[n - 1]) << "question " << n;
    EXPECT_EQ([algorithm asked].size(), n);
  }
}

TEST_F(MechanismTest, RawSignaturesAreDecidedByTheSecondQuestion) {
  AskedAlgorithm *algorithm = Asked(kSecKeyAlgorithmRSASignatureRaw);
  get_mechanism(algorithm);
  EXPECT_THAT([algorithm asked], ElementsAre("algid:encrypt:RSA:raw", "algid:sign:RSA:raw"));
}

TEST_F(MechanismTest, OnlyTheTargetCountsAndNotWhatTheApplicationAskedFor) {
  NSString *digest = (NSString *)kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256;
  NSString *raw = (NSString *)kSecKeyAlgorithmRSASignatureRaw;
  TKTokenKeyAlgorithm *down =
      [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:@[ digest, raw ]] autorelease];
  TKTokenKeyAlgorithm *up =
      [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:@[ raw, digest ]] autorelease];
  EXPECT_EQ(get_mechanism(down), 0x3u);
  EXPECT_STREQ(algo_to_str(down), "kSecKeyAlgorithmRSASignatureRaw");
  EXPECT_EQ(get_mechanism(up), kNoMechanism);
  EXPECT_STREQ(algo_to_str(up), "kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256");
}

}  // namespace
}  // namespace token_testing
