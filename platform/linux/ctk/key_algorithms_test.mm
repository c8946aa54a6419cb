// The key algorithm constants, and the requests that carry them.
#import <CryptoTokenKit/CryptoTokenKit.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

// Read before main, as initialisers of other libraries may.
const SecKeyAlgorithm kReadEarly = kSecKeyAlgorithmRSASignatureRaw;

// The constants without kSecKeyAlgorithm and their strings, put together as Apple's are.
std::map<std::string, std::string> Published() {
  std::map<std::string, std::string> all = {
      {"ECDSASignatureRFC4754", "algid:sign:ECDSA:RFC4754"},
      {"ECDSASignatureDigestX962", "algid:sign:ECDSA:digest-X962"},
      {"ECDHKeyExchangeStandard", "algid:keyexchange:ECDH"},
      {"ECDHKeyExchangeCofactor", "algid:keyexchange:ECDHC"},
      {"RSAEncryptionRaw", "algid:encrypt:RSA:raw"},
      {"RSAEncryptionPKCS1", "algid:encrypt:RSA:PKCS1"},
      {"RSASignatureRaw", "algid:sign:RSA:raw"},
      {"RSASignatureDigestPKCS1v15Raw", "algid:sign:RSA:digest-PKCS1v15"}};
  // The salt of PSS with SHA-224 has 28 bytes, but is published so.
  const std::map<std::string, std::string> salts = {
      {"SHA1", "20"}, {"SHA224", "24"}, {"SHA256", "32"}, {"SHA384", "48"}, {"SHA512", "64"}};
  for (const auto &[hash, salt] : salts) {
    for (const std::string kind : {"Standard", "Cofactor"}) {
      const std::string ecdh = kind == "Standard" ? "ECDH:KDFX963:" : "ECDHC:KDFX963:";
      all["ECDHKeyExchange" + kind + "X963" + hash] = "algid:keyexchange:" + ecdh + hash;
      all["ECIESEncryption" + kind + "X963" + hash + "AESGCM"] =
          "algid:encrypt:ECIES:" + ecdh + hash + ":AESGCM";
      if (hash == "SHA1") continue;  // the derived vector came later
      all["ECIESEncryption" + kind + "VariableIVX963" + hash + "AESGCM"] =
          "algid:encrypt:ECIES:" + ecdh + hash + ":AESGCM-KDFIV";
    }
    const std::string pss = "-PSS:" + hash + ":" + hash + ":" + salt;
    for (const std::string what : {"Digest", "Message"}) {
      const std::string text = what == "Digest" ? "digest" : "message";
      all["ECDSASignature" + what + "X962" + hash] = "algid:sign:ECDSA:" + text + "-X962:" + hash;
      all["RSASignature" + what + "PKCS1v15" + hash] =
          "algid:sign:RSA:" + text + "-PKCS1v15:" + hash;
      all["RSASignature" + what + "PSS" + hash] = "algid:sign:RSA:" + text + pss;
    }
    all["RSAEncryptionOAEP" + hash] = "algid:encrypt:RSA:OAEP:" + hash;
    all["RSAEncryptionOAEP" + hash + "AESGCM"] = "algid:encrypt:RSA:OAEP:" + hash + ":AESGCM";
  }
  return all;
}

TEST(SecKeyAlgorithm, HasItsPublishedString) {
  const std::map<std::string, std::string> published = Published();
  EXPECT_EQ(published.size(), 76U);
  for (const auto &[name, text] : published) {
    auto *constant =
        static_cast<NSString *const *>(dlsym(RTLD_DEFAULT, ("kSecKeyAlgorithm" + name).c_str()));
    ASSERT_NE(constant, nullptr) << name;
    EXPECT_EQ(TextOf(*constant), text) << name;
  }
}

TEST(SecKeyAlgorithm, IsThereBeforeMain) {
  ASSERT_NE(kReadEarly, nullptr);
  EXPECT_EQ(TextOf((NSString *)kReadEarly), "algid:sign:RSA:raw");
}

TKTokenKeyAlgorithm *Algorithm(NSArray *algorithms) {
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:algorithms] autorelease];
}

NSString *const kMessage = @"algid:sign:ECDSA:message-X962:SHA256";
NSString *const kDigest = @"algid:sign:ECDSA:digest-X962:SHA256";
NSString *const kBase = @"algid:sign:ECDSA:digest-X962";

TEST(KeyAlgorithm, WithoutAlgorithmsIsNone) {
  EXPECT_EQ([Algorithm(@[]) isAlgorithm:kSecKeyAlgorithmRSASignatureRaw], NO);
  EXPECT_EQ([Algorithm(@[]) supportsAlgorithm:kSecKeyAlgorithmRSASignatureRaw], NO);
}

TEST(KeyAlgorithm, IsTheTargetAloneAndSupportsWhatWasPassedOnTheWay) {
  const struct {
    SecKeyAlgorithm algorithm;
    bool is;
    bool supports;
  } rows[] = {{kSecKeyAlgorithmECDSASignatureMessageX962SHA256, false, true},
              {kSecKeyAlgorithmECDSASignatureDigestX962SHA256, false, true},
              {kSecKeyAlgorithmECDSASignatureDigestX962, true, true},
              {kSecKeyAlgorithmECDSASignatureDigestX962SHA1, false, false}};
  TKTokenKeyAlgorithm *algorithm = Algorithm(@[ kMessage, kDigest, kBase ]);
  for (const auto &row : rows) {
    EXPECT_EQ([algorithm isAlgorithm:row.algorithm] != NO, row.is);
    EXPECT_EQ([algorithm supportsAlgorithm:row.algorithm] != NO, row.supports);
  }
}

TEST(KeyAlgorithm, ComparesByValue) {
  NSString *text = [NSMutableString stringWithString:kBase];
  EXPECT_NE([Algorithm(@[ text ]) isAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962], NO);
}

TEST(KeyAlgorithm, KeepsItsOwnListInOrder) {
  NSMutableArray *list = [NSMutableArray arrayWithObjects:kMessage, kBase, nil];
  TKTokenKeyAlgorithm *algorithm = Algorithm(list);
  [list removeAllObjects];
  NSArray *expected = @[ kMessage, kBase ];
  EXPECT_TRUE([[algorithm algorithms] isEqual:expected]);
}

TEST(KeyExchangeParameters, KeepSizeAndACopyOfTheInfo) {
  NSMutableData *info = [NSMutableData dataWithBytes:"info" length:4];
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:32 sharedInfo:info] autorelease];
  [info setLength:0];
  EXPECT_EQ([parameters requestedSize], 32);
  EXPECT_TRUE([[parameters sharedInfo] isEqual:[NSData dataWithBytes:"info" length:4]]);
}

}  // namespace
