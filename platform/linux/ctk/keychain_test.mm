// Keychain items as their initialisers fill them, and a token's list of them.
#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/sha.h>

#include <thread>

#include "encoding/der.h"
#include "encoding/testing/certificate_comparison.h"
#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using kelvrin::encoding::kDerInteger;
using kelvrin::encoding::kDerSequence;
using kelvrin::encoding::MakeCertificate;
using kelvrin::encoding::NameFields;
using kelvrin::encoding::WrapDer;

TKTokenKeychainKey *KeyOf(const Bytes &certificate = SomeCertificate(), id objectID = @"id") {
  return [[[TKTokenKeychainKey alloc] initWithCertificate:CertificateOf(certificate)
                                                 objectID:objectID] autorelease];
}

TKTokenKeychainCertificate *ItemOf(const Bytes &certificate = SomeCertificate(),
                                   id objectID = @"id") {
  return [[[TKTokenKeychainCertificate alloc] initWithCertificate:CertificateOf(certificate)
                                                         objectID:objectID] autorelease];
}

// A certificate whose point has its X alone.
Bytes CertificateWithCompressedPoint() {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  EVP_PKEY_set_utf8_string_param(key.get(), OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                 OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_COMPRESSED);
  return kelvrin::encoding::MakeCertificateOf(key.get(), {});
}

// What OpenSSL reads from a certificate: 04 X Y, or a PKCS#1 RSAPublicKey.
Bytes PublicKeyIn(const Bytes &certificate) {
  auto facts = *kelvrin::encoding::ReadCertificateWithOpenssl(certificate);
  if (facts.key_type == CKK_EC) return facts.ec_point;
  facts.modulus.insert(facts.modulus.begin(), 0);  // which has its first bit set
  Bytes numbers = WrapDer(kDerInteger, facts.modulus);
  const Bytes exponent = WrapDer(kDerInteger, facts.public_exponent);
  numbers.insert(numbers.end(), exponent.begin(), exponent.end());
  return WrapDer(kDerSequence, numbers);
}

TEST(KeychainItem, KeyOfAnUnknownKindIsNilThoughItsCertificateIsAnItem) {
  const Bytes ed = MakeCertificate({.key = "ED25519"});
  EXPECT_EQ(KeyOf(ed), nil);
  EXPECT_NE(ItemOf(ed), nil);
}

TEST(KeychainItem, LabelIsTheSubjectsNameUnlessThatIsMissingOrTurnedOff) {
  const Bytes nameless = MakeCertificate({.subject_fields = NameFields()});
  EXPECT_EQ([KeyOf(nameless) label], nil);
  EXPECT_EQ([ItemOf(nameless) label], nil);
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  EXPECT_EQ([KeyOf() label], nil);
  EXPECT_EQ([ItemOf() label], nil);
  [TKTokenKeychainItem setLabelsFromSubject:YES];
  EXPECT_EQ(TextOf([KeyOf() label]), "Subject");
  EXPECT_EQ(TextOf([ItemOf() label]), "Subject");
}

TEST(KeychainItem, KeyWithoutACertificateHasNothingFilledIn) {
  TKTokenKeychainKey *key = [[[TKTokenKeychainKey alloc] initWithCertificate:nullptr
                                                                    objectID:@"id"] autorelease];
  EXPECT_EQ(TextOf([key objectID]), "id");
  EXPECT_EQ([key keySizeInBits], 0);
  for (NSString *name in
       @[ @"keyType", @"publicKeyData", @"publicKeyHash", @"label", @"constraints" ]) {
    EXPECT_EQ([key valueForKey:name], nil) << TextOf(name);
  }
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
  EXPECT_TRUE([[ItemOf() data] isEqual:DataOf(SomeCertificate())]);
  NSDictionary *expected = [NSDictionary dictionaryWithObject:[NSNumber numberWithBool:YES]
                                                       forKey:@(TKTokenOperationReadData)];
  EXPECT_TRUE([[ItemOf() constraints] isEqual:expected]);
}

TEST(KeychainItem, KeyIsDescribedWithItsPointWrittenOut) {
  const struct {
    const char *name;
    Bytes certificate;
    const char *type;
    int bits;
  } rows[] = {{"RSA", MakeCertificate({.key = "RSA"}), "42", 2048},
              {"P-256", SomeCertificate(), "73", 256},
              {"P-256, compressed", CertificateWithCompressedPoint(), "73", 256},
              {"P-521", MakeCertificate({.key = "P-521"}), "73", 521}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    TKTokenKeychainKey *key = KeyOf(row.certificate);
    EXPECT_EQ(TextOf([key keyType]), row.type);
    EXPECT_EQ([key keySizeInBits], row.bits);
    const Bytes data = PublicKeyIn(row.certificate);
    EXPECT_TRUE([[key publicKeyData] isEqual:DataOf(data)]);
    Bytes hash(SHA_DIGEST_LENGTH);
    SHA1(data.data(), data.size(), hash.data());
    EXPECT_TRUE([[key publicKeyHash] isEqual:DataOf(hash)]);
  }
}

TEST(KeychainItem, KeyCanDoNothingUntilToldSoAndKeepsWhatIsSet) {
  TKTokenKeychainKey *key = KeyOf();
  EXPECT_FALSE([key canSign] || [key canDecrypt] || [key canPerformKeyExchange] ||
               [key isSuitableForLogin]);
  EXPECT_EQ([key constraints], nil);
  [key setCanSign:YES];
  [key setCanDecrypt:YES];
  [key setCanPerformKeyExchange:YES];
  [key setSuitableForLogin:YES];
  [key setApplicationTag:DataOf({'x'})];
  [key setConstraints:@{@(TKTokenOperationSignData) : @"PIN"}];
  EXPECT_TRUE([key canSign] && [key canDecrypt] && [key canPerformKeyExchange] &&
              [key isSuitableForLogin]);
  EXPECT_TRUE([[key applicationTag] isEqual:DataOf({'x'})]);
  EXPECT_EQ(TextOf([[key constraints] objectForKey:@(TKTokenOperationSignData)]), "PIN");
}

class KeychainContents : public testing::Test {
 protected:
  static TKTokenKeychainKey *Key(id objectID) { return KeyOf(SomeCertificate(), objectID); }
  static TKTokenKeychainCertificate *Item(id objectID) {
    return ItemOf(SomeCertificate(), objectID);
  }

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

TEST_F(KeychainContents, ItemsAreFoundByObjectID) {
  EXPECT_EQ([[contents_ items] count], 0U);
  NSData *keyID = DataOf({1, 'k'});
  NSData *certificateID = DataOf({2, 'k'});
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
