// What a real card's keys can do, through the extension's classes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#include "platform/linux/host/padding.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

using host::Hash;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class OperationsOnARealCard : public testing::Test {
 protected:
  BOOL LogIn() { return Login(session_, real_.card().pin()); }
  // Signs with a key of the card's; keeps the error of a failure.
  NSData *SignWith(NSData *key, SecKeyAlgorithm algorithm, const Bytes &data) {
    return Sign(session_, data, key, algorithm, &error_);
  }
  // Has a request for a signature refused with this code.
  void ExpectRefusal(NSInteger code, NSData *key, SecKeyAlgorithm algorithm, const Bytes &data) {
    EXPECT_EQ(SignWith(key, algorithm, data), nil);
    EXPECT_TRUE([[error_ domain] isEqual:@"CryptoTokenKit"]);
    EXPECT_EQ([error_ code], code);
  }

  RealCard real_;
  Inserted card_{real_.bundle()};
  TokenSession *session_ = card_.session();
  NSError *error_ = nil;
  const Bytes message_ = host::testing::BytesOf("message");
  const Bytes digest_ = host::Digest(Hash::kSha256, message_);
};

TEST_F(OperationsOnARealCard, AskForThePinFirst) {
  ExpectRefusal(-9, EcKey(), kSecKeyAlgorithmECDSASignatureDigestX962, digest_);
}

TEST_F(OperationsOnARealCard, RefuseAWrongAndAnEmptyPin) {
  EXPECT_FALSE(Login(session_, "000000"));
  EXPECT_FALSE(Login(session_, ""));
  EXPECT_FALSE(SignsWithEcKey(real_, session_, "m"));
}

TEST_F(OperationsOnARealCard, ReportASecondLoginAsAFailure) {
  EXPECT_TRUE(LogIn());
  EXPECT_FALSE(LogIn());
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "still logged in"));
}

TEST_F(OperationsOnARealCard, SignAnRsaBlock) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(
      Supports(session_, TKTokenOperationSignData, RsaKey(), kSecKeyAlgorithmRSASignatureRaw));
  const Bytes block = *host::PadPkcs1(host::DigestInfo(Hash::kSha256, digest_), 256);
  const Bytes signature = ToBytes(SignWith(RsaKey(), kSecKeyAlgorithmRSASignatureRaw, block));
  const OpensslKey key = real_.PublicKey("rsa");
  EXPECT_TRUE(key.Verifies(Hash::kSha256, message_, signature));
  EXPECT_FALSE(key.Verifies(Hash::kSha256, host::testing::BytesOf("another"), signature));
}

TEST_F(OperationsOnARealCard, SignWithEcdsa) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(Supports(session_, TKTokenOperationSignData, EcKey(),
                       kSecKeyAlgorithmECDSASignatureDigestX962));
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
}

TEST_F(OperationsOnARealCard, DoNotHashADigestAgain) {
  ASSERT_TRUE(LogIn());
  NSData *signature = SignWith(EcKey(), kSecKeyAlgorithmECDSASignatureDigestX962SHA1, digest_);
  EXPECT_TRUE(real_.PublicKey("ec").Verifies(Hash::kSha256, message_, ToBytes(signature)));
}

TEST_F(OperationsOnARealCard, Decrypt) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(Supports(session_, TKTokenOperationDecryptData, RsaKey(),
                       kSecKeyAlgorithmRSAEncryptionPKCS1));
  NSData *decrypted = Decrypt(session_, real_.PublicKey("rsa").EncryptPkcs1(message_), RsaKey(),
                              kSecKeyAlgorithmRSAEncryptionPKCS1, &error_);
  EXPECT_EQ(ToBytes(decrypted), message_);
}

// A foreign ciphertext, a block that is too long, a key that the card does not have: there the
// search succeeds, and the card refuses the handle.
TEST_F(OperationsOnARealCard, FailWithoutHarmToTheCard) {
  ASSERT_TRUE(LogIn());
  EXPECT_EQ(
      Decrypt(session_, Bytes(256, 0x11), RsaKey(), kSecKeyAlgorithmRSAEncryptionPKCS1, &error_),
      nil);
  EXPECT_EQ([error_ code], -3);
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
  ExpectRefusal(-3, RsaKey(), kSecKeyAlgorithmRSASignatureRaw, Bytes(257, 0x01));
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
  ExpectRefusal(-3, ToData({2, 0x66}), kSecKeyAlgorithmECDSASignatureDigestX962, digest_);
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
}

TEST_F(OperationsOnARealCard, AgreeOnASecretThatTheSupportCheckDoesNotOffer) {
  ASSERT_TRUE(LogIn());
  const SecKeyAlgorithm algorithm = kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1;
  EXPECT_FALSE(Supports(session_, TKTokenOperationPerformKeyExchange, EcKey(), algorithm));
  const OpensslKey other = OpensslKey::EllipticCurve();
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:16 sharedInfo:nil] autorelease];
  NSData *secret = [session_ tokenSession:session_
          performKeyExchangeWithPublicKey:ToData(other.facts().public_key)
                                 usingKey:EcKey()
                                algorithm:Algorithm(algorithm)
                               parameters:parameters
                                    error:&error_];
  EXPECT_EQ(ToBytes(secret), other.Agree(real_.PublicKey("ec").facts().public_key));
}

TEST_F(OperationsOnARealCard, PutNoPinIntoTheLog) {
  ASSERT_TRUE(LogIn());
  EXPECT_FALSE(Login(session_, "999999"));
  for (const std::string &pin : {real_.card().pin(), std::string("999999")}) {
    EXPECT_THAT(real_.recorder().texts(), Each(Not(HasSubstr(pin))));
  }
}

}  // namespace
}  // namespace endtoend
