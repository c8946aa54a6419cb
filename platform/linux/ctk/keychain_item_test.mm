#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <thread>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using test_certificates::Certificate;
using test_certificates::KeyKind;

TKTokenKeychainKey *KeyOf(const Certificate &certificate) {
  return [[[TKTokenKeychainKey alloc] initWithCertificate:CertificateOf(certificate.der)
                                                 objectID:@"id"] autorelease];
}

TKTokenKeychainCertificate *ItemOf(const Certificate &certificate) {
  return [[[TKTokenKeychainCertificate alloc] initWithCertificate:CertificateOf(certificate.der)
                                                         objectID:@"id"] autorelease];
}

NSData *Sha1(NSData *data) {
  uint8_t hash[SHA_DIGEST_LENGTH];
  SHA1(static_cast<const uint8_t *>([data bytes]), [data length], hash);
  return [NSData dataWithBytes:hash length:sizeof(hash)];
}

// 04 X Y from the key's own coordinates.
NSData *UncompressedPoint(EVP_PKEY *key, size_t fieldSize) {
  std::vector<uint8_t> point = {4};
  for (const char *name : {OSSL_PKEY_PARAM_EC_PUB_X, OSSL_PKEY_PARAM_EC_PUB_Y}) {
    BIGNUM *number = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key, name, &number), 1);
    std::vector<uint8_t> bytes(fieldSize);
    BN_bn2binpad(number, bytes.data(), static_cast<int>(fieldSize));
    BN_free(number);
    point.insert(point.end(), bytes.begin(), bytes.end());
  }
  return DataOf(point);
}

// Takes labels from subjects again when a test that stopped it ends.
class KeychainItem : public testing::Test {
 protected:
  ~KeychainItem() override { [TKTokenKeychainItem setLabelsFromSubject:YES]; }
};

TEST_F(KeychainItem, KeyOfAnUnknownKindIsNil) {
  EXPECT_EQ(KeyOf(test_certificates::make(KeyKind::kEd25519, {{"CN", "Ed"}})), nil);
}

TEST_F(KeychainItem, CertificateOfAnUnknownKindOfKeyIsAnItem) {
  EXPECT_NE(ItemOf(test_certificates::make(KeyKind::kEd25519, {{"CN", "Ed"}})), nil);
}

TEST_F(KeychainItem, SubjectWithoutANameLeavesNoLabel) {
  const Certificate certificate = test_certificates::make(KeyKind::kP256, {});
  EXPECT_EQ([KeyOf(certificate) label], nil);
  EXPECT_EQ([ItemOf(certificate) label], nil);
}

TEST_F(KeychainItem, LabelsFromSubjectsCanBeTurnedOff) {
  const Certificate certificate = test_certificates::make(KeyKind::kP256, {{"CN", "Name"}});
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  EXPECT_EQ([KeyOf(certificate) label], nil);
  EXPECT_EQ([ItemOf(certificate) label], nil);
  [TKTokenKeychainItem setLabelsFromSubject:YES];
  EXPECT_EQ(TextOf([KeyOf(certificate) label]), "Name");
  EXPECT_EQ(TextOf([ItemOf(certificate) label]), "Name");
}

TEST_F(KeychainItem, KeyWithoutACertificateHasNothingFilledIn) {
  TKTokenKeychainKey *key = [[[TKTokenKeychainKey alloc] initWithCertificate:nullptr
                                                                    objectID:@"id"] autorelease];
  ASSERT_NE(key, nil);
  EXPECT_EQ(TextOf([key objectID]), "id");
  EXPECT_EQ([key keyType], nil);
  EXPECT_EQ([key keySizeInBits], 0);
  EXPECT_EQ([key publicKeyData], nil);
  EXPECT_EQ([key publicKeyHash], nil);
  EXPECT_EQ([key label], nil);
  EXPECT_EQ([key constraints], nil);
}

TEST_F(KeychainItem, BaseItemHasItsObjectIDAlone) {
  TKTokenKeychainItem *item = [[[TKTokenKeychainItem alloc] initWithObjectID:@"id"] autorelease];
  EXPECT_EQ(TextOf([item objectID]), "id");
  EXPECT_EQ([item label], nil);
  EXPECT_EQ([item constraints], nil);
}

TEST_F(KeychainItem, ObjectIDAndLabelAreCopied) {
  NSMutableString *text = [NSMutableString stringWithString:@"id"];
  TKTokenKeychainItem *item = [[[TKTokenKeychainItem alloc] initWithObjectID:text] autorelease];
  [item setLabel:text];
  [text appendString:@" changed"];
  EXPECT_EQ(TextOf([item objectID]), "id");
  EXPECT_EQ(TextOf([item label]), "id");
}

TEST_F(KeychainItem, CertificateHasItsBytes) {
  const Certificate certificate = test_certificates::make(KeyKind::kP256, {{"CN", "Name"}});
  EXPECT_TRUE([[ItemOf(certificate) data] isEqual:DataOf(certificate.der)]);
}

TEST_F(KeychainItem, CertificateMayBeReadAndNothingElse) {
  TKTokenKeychainCertificate *item =
      ItemOf(test_certificates::make(KeyKind::kP256, {{"CN", "Name"}}));
  NSDictionary *expected = [NSDictionary dictionaryWithObject:[NSNumber numberWithBool:YES]
                                                       forKey:@(TKTokenOperationReadData)];
  EXPECT_TRUE([[item constraints] isEqual:expected]);
}

TEST_F(KeychainItem, RsaKeyIsDescribed) {
  const Certificate certificate = test_certificates::make(KeyKind::kRsa2048, {{"CN", "Name"}});
  TKTokenKeychainKey *key = KeyOf(certificate);
  EXPECT_EQ(TextOf([key keyType]), "42");
  EXPECT_EQ([key keySizeInBits], 2048);
  EXPECT_TRUE([[key publicKeyHash] isEqual:Sha1([key publicKeyData])]);
  // The data is a PKCS#1 RSAPublicKey of the same modulus and exponent.
  const auto *bytes = static_cast<const unsigned char *>([[key publicKeyData] bytes]);
  const unsigned char *end = bytes;
  EVP_PKEY *read =
      d2i_PublicKey(EVP_PKEY_RSA, nullptr, &end, static_cast<long>([[key publicKeyData] length]));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(end, bytes + [[key publicKeyData] length]);
  EXPECT_EQ(EVP_PKEY_eq(read, certificate.key.get()), 1);
  EVP_PKEY_free(read);
}

TEST_F(KeychainItem, EllipticCurveKeyIsDescribed) {
  const Certificate certificate = test_certificates::make(KeyKind::kP256, {{"CN", "Name"}});
  TKTokenKeychainKey *key = KeyOf(certificate);
  EXPECT_EQ(TextOf([key keyType]), "73");
  EXPECT_EQ([key keySizeInBits], 256);
  EXPECT_TRUE([[key publicKeyData] isEqual:UncompressedPoint(certificate.key.get(), 32)]);
  EXPECT_TRUE([[key publicKeyHash] isEqual:Sha1([key publicKeyData])]);
}

TEST_F(KeychainItem, CompressedPointIsWrittenOut) {
  const Certificate certificate =
      test_certificates::make(KeyKind::kP256Compressed, {{"CN", "Name"}});
  EXPECT_TRUE(
      [[KeyOf(certificate) publicKeyData] isEqual:UncompressedPoint(certificate.key.get(), 32)]);
}

TEST_F(KeychainItem, LargeCurveHasItsOddSize) {
  const Certificate certificate = test_certificates::make(KeyKind::kP521, {{"CN", "Name"}});
  EXPECT_EQ([KeyOf(certificate) keySizeInBits], 521);
  EXPECT_EQ([[KeyOf(certificate) publicKeyData] length], 133U);
}

TEST_F(KeychainItem, KeyCanDoNothingUntilToldSo) {
  TKTokenKeychainKey *key = KeyOf(test_certificates::make(KeyKind::kP256, {{"CN", "Name"}}));
  EXPECT_EQ([key canSign], NO);
  EXPECT_EQ([key canDecrypt], NO);
  EXPECT_EQ([key canPerformKeyExchange], NO);
  EXPECT_EQ([key isSuitableForLogin], NO);
  EXPECT_EQ([key constraints], nil);
}

TEST_F(KeychainItem, KeyKeepsWhatIsSet) {
  TKTokenKeychainKey *key = KeyOf(test_certificates::make(KeyKind::kP256, {{"CN", "Name"}}));
  NSData *data = [NSData dataWithBytes:"x" length:1];
  [key setCanSign:YES];
  [key setCanDecrypt:YES];
  [key setCanPerformKeyExchange:YES];
  [key setSuitableForLogin:YES];
  [key setApplicationTag:data];
  [key setConstraints:@{@(TKTokenOperationSignData) : @"PIN"}];
  EXPECT_NE([key canSign], NO);
  EXPECT_NE([key canDecrypt], NO);
  EXPECT_NE([key canPerformKeyExchange], NO);
  EXPECT_NE([key isSuitableForLogin], NO);
  EXPECT_TRUE([[key applicationTag] isEqual:data]);
  EXPECT_EQ(TextOf([[key constraints] objectForKey:@(TKTokenOperationSignData)]), "PIN");
}

TEST_F(KeychainItem, PropertiesCanBeReadWhileTheyAreSet) {
  TKTokenKeychainItem *item = [[[TKTokenKeychainItem alloc] initWithObjectID:@"id"] autorelease];
  [item setLabel:@"0"];
  std::thread writer([item] {
    @autoreleasepool {
      for (int i = 0; i < 200; ++i) [item setLabel:[NSString stringWithFormat:@"label %d", i]];
    }
  });
  int missing = 0;
  for (int i = 0; i < 200; ++i) {
    @autoreleasepool {
      if ([[item label] length] == 0) ++missing;
    }
  }
  writer.join();
  EXPECT_EQ(missing, 0);
  EXPECT_EQ(TextOf([item label]), "label 199");
}

}  // namespace
