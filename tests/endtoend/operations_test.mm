// What a real card's keys can do, through the extension's classes.
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

class OperationsOnARealCard : public testing::Test {
 protected:
  OperationsOnARealCard() : token_(real_.Insert()), session_(MakeSession(token_)) {}
  ~OperationsOnARealCard() override {
    [session_ release];
    [token_ release];
  }

  std::filesystem::path PublicKey(const char *file) const { return real_.card().File(file); }
  BOOL LogIn() { return Login(session_, real_.card().pin()); }

  RealCard real_;
  Token *token_;
  TokenSession *session_;
  NSError *error_ = nil;
};

TEST_F(OperationsOnARealCard, AskForThePinFirst) {
  EXPECT_EQ(Sign(session_, Sha256("m"), EcKey(), kSecKeyAlgorithmECDSASignatureDigestX962, &error_),
            nil);
  EXPECT_TRUE([[error_ domain] isEqual:@"CryptoTokenKit"]);
  EXPECT_EQ([error_ code], -9);
}

TEST_F(OperationsOnARealCard, RefuseAWrongPin) {
  EXPECT_FALSE(Login(session_, "000000"));
  EXPECT_FALSE(SignsWithEcKey(real_, session_, "m"));
}

TEST_F(OperationsOnARealCard, RefuseAnEmptyPin) { EXPECT_FALSE(Login(session_, "")); }

TEST_F(OperationsOnARealCard, ReportASecondLoginAsAFailure) {
  EXPECT_TRUE(LogIn());
  EXPECT_FALSE(LogIn());
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "still logged in"));
}

TEST_F(OperationsOnARealCard, SignAnRsaBlock) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(
      Supports(session_, TKTokenOperationSignData, RsaKey(), kSecKeyAlgorithmRSASignatureRaw));
  const Bytes digest = Sha256("message");
  NSData *signature =
      Sign(session_, Pkcs1Block(digest, 256), RsaKey(), kSecKeyAlgorithmRSASignatureRaw, &error_);
  ASSERT_NE(signature, nil);
  EXPECT_TRUE(Verifies(PublicKey("rsa.pub.pem"), digest, BytesOf(signature)));
  EXPECT_FALSE(Verifies(PublicKey("rsa.pub.pem"), Sha256("another"), BytesOf(signature)));
}

TEST_F(OperationsOnARealCard, SignWithEcdsa) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(Supports(session_, TKTokenOperationSignData, EcKey(),
                       kSecKeyAlgorithmECDSASignatureDigestX962));
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
}

TEST_F(OperationsOnARealCard, DoNotHashADigestAgain) {
  ASSERT_TRUE(LogIn());
  const Bytes digest = Sha256("message");
  NSData *signature =
      Sign(session_, digest, EcKey(), kSecKeyAlgorithmECDSASignatureDigestX962SHA1, &error_);
  ASSERT_NE(signature, nil);
  EXPECT_TRUE(Verifies(PublicKey("ec.pub.pem"), digest, BytesOf(signature)));
}

TEST_F(OperationsOnARealCard, Decrypt) {
  ASSERT_TRUE(LogIn());
  EXPECT_TRUE(Supports(session_, TKTokenOperationDecryptData, RsaKey(),
                       kSecKeyAlgorithmRSAEncryptionPKCS1));
  const Bytes plaintext = {'s', 'e', 'c', 'r', 'e', 't'};
  NSData *decrypted = Decrypt(session_, EncryptPkcs1(PublicKey("rsa.pub.pem"), plaintext), RsaKey(),
                              kSecKeyAlgorithmRSAEncryptionPKCS1, &error_);
  EXPECT_EQ(BytesOf(decrypted), plaintext);
}

TEST_F(OperationsOnARealCard, FailOnAForeignCiphertext) {
  ASSERT_TRUE(LogIn());
  EXPECT_EQ(
      Decrypt(session_, Bytes(256, 0x11), RsaKey(), kSecKeyAlgorithmRSAEncryptionPKCS1, &error_),
      nil);
  EXPECT_EQ([error_ code], -3);
  // The card is none the worse for it.
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
}

TEST_F(OperationsOnARealCard, FailOnTooLongABlockWithoutHarm) {
  ASSERT_TRUE(LogIn());
  EXPECT_EQ(Sign(session_, Bytes(257, 0x01), RsaKey(), kSecKeyAlgorithmRSASignatureRaw, &error_),
            nil);
  EXPECT_EQ([error_ code], -3);
  EXPECT_TRUE(SignsWithEcKey(real_, session_, "message"));
}

TEST_F(OperationsOnARealCard, AgreeOnASecretThatTheSupportCheckDoesNotOffer) {
  ASSERT_TRUE(LogIn());
  EXPECT_FALSE(Supports(session_, TKTokenOperationPerformKeyExchange, EcKey(),
                        kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1));
  const KeyAgreement other;
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:16 sharedInfo:nil] autorelease];
  NSData *secret = [session_ tokenSession:session_
          performKeyExchangeWithPublicKey:DataOf(other.PublicPoint())
                                 usingKey:EcKey()
                                algorithm:Algorithm(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1)
                               parameters:parameters
                                    error:&error_];
  EXPECT_EQ(BytesOf(secret), other.Secret(PublicKey("ec.pub.pem")));
}

TEST_F(OperationsOnARealCard, ReportAKeyThatTheCardDoesNotHave) {
  ASSERT_TRUE(LogIn());
  const Bytes unknown = {2, 0x66};
  EXPECT_EQ(Sign(session_, Sha256("m"), DataOf(unknown), kSecKeyAlgorithmECDSASignatureDigestX962,
                 &error_),
            nil);
  EXPECT_EQ([error_ code], -3);  // the search succeeds; the card refuses the handle
}

TEST_F(OperationsOnARealCard, PutNoPinIntoTheLog) {
  ASSERT_TRUE(LogIn());
  EXPECT_FALSE(Login(session_, "999999"));
  for (const std::string &line : real_.recorder().texts()) {
    EXPECT_EQ(line.find(real_.card().pin()), std::string::npos) << line;
    EXPECT_EQ(line.find("999999"), std::string::npos) << line;
  }
}

}  // namespace
}  // namespace endtoend
