// Private keys of tokens.
#include <gtest/gtest.h>

#import "platform/linux/ctk/ctk_fixture.h"
#import "platform/linux/ctk/testing/published_token.h"

namespace {

class TokenKeyTest : public testing::Test {
 protected:
  TokenKeyTest() {
    NSDictionary *query = @{
      (id)kSecClass : (id)kSecClassKey,
      (id)kSecAttrTokenID : @"a:1",
      (id)kSecReturnRef : [NSNumber numberWithBool:YES]
    };
    CFTypeRef found = nullptr;
    SecItemCopyMatching((CFDictionaryRef)query, &found);
    key = (SecKeyRef)[(id)found autorelease];
  }

  static NSArray *Items() {
    TKTokenKeychainKey *item =
        [[TKTokenKeychainKey alloc] initWithCertificate:CertificateOf(SomeCertificate())
                                               objectID:@"key"];
    [item setCanSign:YES];
    return @[ [item autorelease] ];
  }

  // What a function of Security's returned, or its error.
  std::string Outcome(CFDataRef (*perform)(SecKeyRef, SecKeyAlgorithm, CFDataRef, CFErrorRef *)) {
    CFErrorRef error = nullptr;
    NSData *data =
        (NSData *)perform(key, (CFStringRef) @"known",
                          (CFDataRef)[@"text" dataUsingEncoding:NSUTF8StringEncoding], &error);
    EXPECT_EQ(data == nil, error != nullptr);
    NSError *reason = [(NSError *)error autorelease];
    if (reason != nil) return TextOf([reason domain]) + " " + std::to_string([reason code]);
    return TextOf([[[NSString alloc] initWithData:[data autorelease]
                                         encoding:NSUTF8StringEncoding] autorelease]);
  }
  bool Supports(SecKeyOperationType operation, NSString *algorithm) {
    return SecKeyIsAlgorithmSupported(key, operation, (CFStringRef)algorithm) != 0;
  }

  PublishedToken token{@"a:1", Items()};
  SecKeyRef key = nullptr;
};

TEST_F(TokenKeyTest, FailsWhenItsTokenIsGone) {
  EXPECT_EQ([WordService count], 1);
  token.Remove();
  EXPECT_EQ([WordService count], 0);
  EXPECT_EQ(Outcome(SecKeyCreateSignature), "CryptoTokenKit -7");
  EXPECT_EQ(Outcome(SecKeyCreateDecryptedData), "CryptoTokenKit -7");
  EXPECT_FALSE(Supports(kSecKeyOperationTypeSign, @"known"));
  EXPECT_EQ(SecKeyCopyAttributes(key), nullptr);
}

TEST_F(TokenKeyTest, EndsAsItsServiceEndsItWhenTheTokenGoesMeanwhile) {
  [WordService setDuringCall:[this]() -> NSError * {
    token.Remove();
    EXPECT_EQ([WordService count], 1);
    return nil;
  }];
  EXPECT_EQ(Outcome(SecKeyCreateSignature), "0 Subject known text");
  EXPECT_EQ([WordService count], 0);
  EXPECT_EQ(Outcome(SecKeyCreateSignature), "CryptoTokenKit -7");
}

TEST_F(TokenKeyTest, HandsTheServicesErrorOn) {
  [WordService
      setDuringCall:[] { return [NSError errorWithDomain:@"elsewhere" code:7 userInfo:nil]; }];
  EXPECT_EQ(Outcome(SecKeyCreateSignature), "elsewhere 7");
}

TEST_F(TokenKeyTest, HasNoPublicHalf) {
  CFErrorRef error = nullptr;
  EXPECT_EQ(SecKeyCopyExternalRepresentation(key, &error), nullptr);
  EXPECT_EQ([[(NSError *)error autorelease] code], -4);  // errSecUnimplemented
  EXPECT_EQ(Outcome(SecKeyCreateEncryptedData), "NSOSStatusErrorDomain -50");
  CFDataRef data = (CFDataRef)[NSData data];
  EXPECT_EQ(SecKeyVerifySignature(key, (CFStringRef) @"known", data, data, nullptr), 0);
  EXPECT_FALSE(Supports(kSecKeyOperationTypeVerify, @"known"));
  EXPECT_FALSE(Supports(kSecKeyOperationTypeEncrypt, @"known"));
}

TEST_F(TokenKeyTest, SignsAndDecryptsThroughTheService) {
  EXPECT_TRUE(Supports(kSecKeyOperationTypeSign, @"known"));
  EXPECT_FALSE(Supports(kSecKeyOperationTypeSign, @"unknown"));
  EXPECT_EQ(Outcome(SecKeyCreateSignature), "0 Subject known text");
  EXPECT_EQ(Outcome(SecKeyCreateDecryptedData), "3 Subject known text");
}

TEST_F(TokenKeyTest, TellsWhatItIs) {
  NSDictionary *attributes = [(NSDictionary *)SecKeyCopyAttributes(key) autorelease];
  EXPECT_EQ(TextOf([attributes objectForKey:(id)kSecAttrTokenID]), "a:1");
  EXPECT_TRUE([[attributes objectForKey:(id)kSecAttrKeyClass] isEqual:(id)kSecAttrKeyClassPrivate]);
  EXPECT_EQ([[attributes objectForKey:(id)kSecAttrKeySizeInBits] integerValue], 256);
  EXPECT_TRUE([[attributes objectForKey:(id)kSecAttrCanSign] boolValue]);
  EXPECT_FALSE([[attributes objectForKey:(id)kSecAttrCanDecrypt] boolValue]);
}

}  // namespace
