// Keychain items as their initialisers fill them, and a token's list of them.
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

TKTokenKeychainKey *KeyOf(const Certificate &certificate, id objectID = @"id") {
  return [[[TKTokenKeychainKey alloc] initWithCertificate:CertificateOf(certificate.der)
                                                 objectID:objectID] autorelease];
}

TKTokenKeychainCertificate *ItemOf(const Certificate &certificate, id objectID = @"id") {
  return [[[TKTokenKeychainCertificate alloc] initWithCertificate:CertificateOf(certificate.der)
                                                         objectID:objectID] autorelease];
}

// On P-256, with a common name.
const Certificate &Some() {
  static const Certificate certificate = test_certificates::Make(KeyKind::kP256, {{"CN", "Name"}});
  return certificate;
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

TEST(KeychainItem, KeyOfAnUnknownKindIsNilThoughItsCertificateIsAnItem) {
  const Certificate ed = test_certificates::Make(KeyKind::kEd25519, {{"CN", "Ed"}});
  EXPECT_EQ(KeyOf(ed), nil);
  EXPECT_NE(ItemOf(ed), nil);
}

TEST(KeychainItem, LabelIsTheSubjectsNameUnlessThatIsMissingOrTurnedOff) {
  const Certificate nameless = test_certificates::Make(KeyKind::kP256, {});
  EXPECT_EQ([KeyOf(nameless) label], nil);
  EXPECT_EQ([ItemOf(nameless) label], nil);
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  EXPECT_EQ([KeyOf(Some()) label], nil);
  EXPECT_EQ([ItemOf(Some()) label], nil);
  [TKTokenKeychainItem setLabelsFromSubject:YES];
  EXPECT_EQ(TextOf([KeyOf(Some()) label]), "Name");
  EXPECT_EQ(TextOf([ItemOf(Some()) label]), "Name");
}

TEST(KeychainItem, KeyWithoutACertificateHasNothingFilledIn) {
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

TEST(KeychainItem, ObjectIDAndLabelAreCopied) {
  NSMutableString *text = [NSMutableString stringWithString:@"id"];
  TKTokenKeychainItem *item = [[[TKTokenKeychainItem alloc] initWithObjectID:text] autorelease];
  EXPECT_EQ([item label], nil);
  EXPECT_EQ([item constraints], nil);
  [item setLabel:text];
  [text appendString:@" changed"];
  EXPECT_EQ(TextOf([item objectID]), "id");
  EXPECT_EQ(TextOf([item label]), "id");
}

TEST(KeychainItem, CertificateHasItsBytesWhichMayBeReadAndNothingElse) {
  EXPECT_TRUE([[ItemOf(Some()) data] isEqual:DataOf(Some().der)]);
  NSDictionary *expected = [NSDictionary dictionaryWithObject:[NSNumber numberWithBool:YES]
                                                       forKey:@(TKTokenOperationReadData)];
  EXPECT_TRUE([[ItemOf(Some()) constraints] isEqual:expected]);
}

TEST(KeychainItem, RsaKeyIsDescribed) {
  const Certificate certificate = test_certificates::Make(KeyKind::kRsa2048, {{"CN", "Name"}});
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

TEST(KeychainItem, EllipticCurveKeyIsDescribedWithItsPointWrittenOut) {
  const struct {
    KeyKind kind;
    int bits;
    size_t field_size;
  } rows[] = {
      {KeyKind::kP256, 256, 32}, {KeyKind::kP256Compressed, 256, 32}, {KeyKind::kP521, 521, 66}};
  for (const auto &row : rows) {
    const Certificate certificate = test_certificates::Make(row.kind, {{"CN", "Name"}});
    TKTokenKeychainKey *key = KeyOf(certificate);
    EXPECT_EQ(TextOf([key keyType]), "73");
    EXPECT_EQ([key keySizeInBits], row.bits);
    EXPECT_TRUE(
        [[key publicKeyData] isEqual:UncompressedPoint(certificate.key.get(), row.field_size)]);
    EXPECT_TRUE([[key publicKeyHash] isEqual:Sha1([key publicKeyData])]);
  }
}

TEST(KeychainItem, KeyCanDoNothingUntilToldSoAndKeepsWhatIsSet) {
  TKTokenKeychainKey *key = KeyOf(Some());
  EXPECT_FALSE([key canSign] || [key canDecrypt] || [key canPerformKeyExchange] ||
               [key isSuitableForLogin]);
  EXPECT_EQ([key constraints], nil);
  NSData *data = [NSData dataWithBytes:"x" length:1];
  [key setCanSign:YES];
  [key setCanDecrypt:YES];
  [key setCanPerformKeyExchange:YES];
  [key setSuitableForLogin:YES];
  [key setApplicationTag:data];
  [key setConstraints:@{@(TKTokenOperationSignData) : @"PIN"}];
  EXPECT_TRUE([key canSign] && [key canDecrypt] && [key canPerformKeyExchange] &&
              [key isSuitableForLogin]);
  EXPECT_TRUE([[key applicationTag] isEqual:data]);
  EXPECT_EQ(TextOf([[key constraints] objectForKey:@(TKTokenOperationSignData)]), "PIN");
}

class KeychainContents : public testing::Test {
 protected:
  TKTokenKeychainKey *Key(id objectID) const { return KeyOf(Some(), objectID); }
  TKTokenKeychainCertificate *Item(id objectID) const { return ItemOf(Some(), objectID); }

  TKTokenKeychainContents *contents_ = [[[TKTokenKeychainContents alloc] initForToken] autorelease];
};

TEST_F(KeychainContents, AbsentItemOrOneOfTheOtherKindIsAnError) {
  [contents_ fillWithItems:@[ Key(@"key"), Item(@"certificate") ]];
  NSError *error = nil;
  EXPECT_EQ([contents_ keyForObjectID:@"certificate" error:&error], nil);
  EXPECT_EQ(TextOf([error domain]), "CryptoTokenKit");
  EXPECT_EQ([error code], TKErrorCodeObjectNotFound);
  error = nil;
  EXPECT_EQ([contents_ certificateForObjectID:@"key" error:&error], nil);
  EXPECT_EQ([error code], TKErrorCodeObjectNotFound);
  EXPECT_EQ([contents_ keyForObjectID:@"none" error:nullptr], nil);
}

TEST_F(KeychainContents, IsEmptyAtTheStart) { EXPECT_EQ([[contents_ items] count], 0U); }

TEST_F(KeychainContents, ItemsAreFoundByObjectID) {
  NSData *keyID = [NSData dataWithBytes:"\x01k" length:2];
  NSData *certificateID = [NSData dataWithBytes:"\x02k" length:2];
  TKTokenKeychainKey *key = Key(keyID);
  TKTokenKeychainCertificate *item = Item(certificateID);
  [contents_ fillWithItems:@[ item, key ]];
  NSError *error = nil;
  EXPECT_EQ([contents_ keyForObjectID:[NSData dataWithData:keyID] error:&error], key);
  EXPECT_EQ([contents_ certificateForObjectID:[NSData dataWithData:certificateID] error:&error],
            item);
  EXPECT_EQ(error, nil);
}

TEST_F(KeychainContents, FillingReplacesWhatWasThereWithACopy) {
  NSMutableArray *items = [NSMutableArray arrayWithObject:Key(@"c")];
  [contents_ fillWithItems:@[ Key(@"a"), Key(@"b") ]];
  [contents_ fillWithItems:items];
  [items removeAllObjects];
  EXPECT_EQ([[contents_ items] count], 1U);
  EXPECT_EQ([contents_ keyForObjectID:@"a" error:nullptr], nil);
}

TEST_F(KeychainContents, ItemsThatShareAnObjectIDAreKeptAndTheFirstIsFound) {
  TKTokenKeychainKey *first = Key(@"a");
  [contents_ fillWithItems:@[ Item(@"a"), first, Key(@"a"), Key(@"b") ]];
  EXPECT_EQ([[contents_ items] count], 4U);
  EXPECT_EQ([contents_ keyForObjectID:@"a" error:nullptr], first);
}

TEST_F(KeychainContents, CanBeReadWhileTheyAreReplaced) {
  NSArray *one = @[ Key(@"a") ];
  NSArray *two = @[ Key(@"a"), Key(@"b") ];
  [contents_ fillWithItems:one];
  TKTokenKeychainContents *contents = contents_;
  std::thread writer([contents, one, two] {
    @autoreleasepool {
      for (int i = 0; i < 200; ++i) [contents fillWithItems:i % 2 == 0 ? two : one];
    }
  });
  int absent = 0;
  for (int i = 0; i < 200; ++i) {
    @autoreleasepool {
      if ([contents keyForObjectID:@"a" error:nullptr] == nil) ++absent;
    }
  }
  writer.join();
  EXPECT_EQ(absent, 0);
}

}  // namespace
