// The keychain's queries.
#include <gtest/gtest.h>

#import "platform/linux/ctk/ctk_fixture.h"
#import "platform/linux/ctk/testing/published_token.h"

namespace {

constexpr OSStatus kNotFound = -25300;  // errSecItemNotFound

NSData *ObjectID(unsigned char id) { return [NSData dataWithBytes:&id length:1]; }

// A token's certificate and its key, both labelled with the certificate's subject.
NSArray *ItemsOf(const Bytes &der) {
  SecCertificateRef certificate = CertificateOf(der);
  TKTokenKeychainKey *key = [[TKTokenKeychainKey alloc] initWithCertificate:certificate
                                                                   objectID:ObjectID(2)];
  [key setCanSign:YES];
  return @[
    [[[TKTokenKeychainCertificate alloc] initWithCertificate:certificate
                                                    objectID:ObjectID(1)] autorelease],
    [key autorelease]
  ];
}

// The DER of a certificate with an RSA key; always the same.
const Bytes &RsaCertificate() {
  static const Bytes der = kelvrin::encoding::MakeCertificate({.key = "RSA"});
  return der;
}

class SecItemTest : public testing::Test {
 protected:
  // The value of a query of this class, and of all tokens unless `more` names one.
  id Find(CFStringRef item_class, NSDictionary *more) {
    NSMutableDictionary *query = [NSMutableDictionary dictionaryWithDictionary:more];
    [query setObject:(id)item_class forKey:(id)kSecClass];
    if ([query objectForKey:(id)kSecAttrTokenID] == nil) {
      [query setObject:(id)kSecAttrAccessGroupToken forKey:(id)kSecAttrAccessGroup];
    }
    CFTypeRef result = nullptr;
    status = SecItemCopyMatching((CFDictionaryRef)query, &result);
    return [(id)result autorelease];
  }
  NSUInteger Count(CFStringRef item_class, NSDictionary *more = @{}) {
    NSMutableDictionary *all = [NSMutableDictionary dictionaryWithDictionary:more];
    [all setObject:(id)kSecMatchLimitAll forKey:(id)kSecMatchLimit];
    [all setObject:yes forKey:(id)kSecReturnRef];
    return [Find(item_class, all) count];
  }

  NSNumber *const yes = [NSNumber numberWithBool:YES];
  OSStatus status = 0;
  PublishedToken one{@"a:1", ItemsOf(SomeCertificate())};
  PublishedToken other{@"a:2", ItemsOf(RsaCertificate())};
};

TEST_F(SecItemTest, TokensAreFoundOnlyByAccessGroupOrTokenID) {
  for (NSDictionary *named : { @{}, @{(id)kSecAttrAccessGroup : @"another"} }) {
    NSMutableDictionary *query = [NSMutableDictionary dictionaryWithDictionary:named];
    [query setObject:(id)kSecClassKey forKey:(id)kSecClass];
    CFTypeRef result = this;
    EXPECT_EQ(SecItemCopyMatching((CFDictionaryRef)query, &result), kNotFound);
    EXPECT_EQ(result, this);
  }
  EXPECT_EQ(Count(kSecClassKey), 2U);
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrTokenID : @"a:1"}), 1U);
  EXPECT_EQ(status, 0);
}

TEST_F(SecItemTest, OfATokenThatIsGoneAreNotFound) {
  one.Remove();
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrTokenID : @"a:1"}), 0U);
  EXPECT_EQ(status, kNotFound);
  EXPECT_EQ(Count(kSecClassCertificate), 1U);
}

TEST_F(SecItemTest, AreThoseThatHaveAllAttributes) {
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrKeyType : (id)kSecAttrKeyTypeRSA}), 1U);
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrKeyClass : (id)kSecAttrKeyClassPrivate}), 2U);
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrCanSign : yes}), 2U);
  EXPECT_EQ(Count(kSecClassKey, @{(id)kSecAttrCanDecrypt : yes}), 0U);
  EXPECT_EQ(Count(kSecClassCertificate, @{(id)kSecAttrCanSign : yes}), 0U);
  EXPECT_EQ(Count(kSecClassCertificate, @{(id)kSecAttrLabel : @"Subject"}), 2U);
}

TEST_F(SecItemTest, AValueIsWhatOneReturnKindSaysAndADictionaryOfSeveral) {
  id reference = Find(kSecClassCertificate, @{(id)kSecReturnRef : yes});
  EXPECT_TRUE([reference isEqual:DataOf(SomeCertificate())]);
  NSDictionary *attributes = Find(kSecClassCertificate, @{(id)kSecReturnAttributes : yes});
  EXPECT_EQ(TextOf([attributes objectForKey:(id)kSecAttrTokenID]), "a:1");
  EXPECT_EQ([attributes objectForKey:(id)kSecValueRef], nil);
  NSDictionary *both =
      Find(kSecClassCertificate, @{(id)kSecReturnAttributes : yes, (id)kSecReturnRef : yes});
  EXPECT_EQ(TextOf([both objectForKey:(id)kSecAttrTokenID]), "a:1");
  EXPECT_TRUE([[both objectForKey:(id)kSecValueRef] isEqual:reference]);
}

TEST_F(SecItemTest, ACertificateAndItsKeyHaveTheSameHash) {
  NSDictionary *attributes = @{(id)kSecReturnAttributes : yes, (id)kSecAttrTokenID : @"a:2"};
  NSDictionary *certificate = Find(kSecClassCertificate, attributes);
  NSDictionary *key = Find(kSecClassKey, attributes);
  NSData *hash = [certificate objectForKey:(id)kSecAttrPublicKeyHash];
  EXPECT_EQ([hash length], 20U);
  EXPECT_TRUE([hash isEqual:[key objectForKey:(id)kSecAttrApplicationLabel]]);
  EXPECT_EQ([[key objectForKey:(id)kSecAttrKeySizeInBits] integerValue], 2048);
}

TEST_F(SecItemTest, WhatIsNeitherCertificateNorKeyIsNotFound) {
  TKTokenKeychainItem *item = [[TKTokenKeychainItem alloc] initWithObjectID:ObjectID(3)];
  const PublishedToken odd(@"a:3", @[ [item autorelease] ]);
  NSDictionary *query = @{(id)kSecAttrTokenID : @"a:3"};
  EXPECT_EQ(Count(kSecClassKey, query) + Count(kSecClassCertificate, query), 0U);
}

}  // namespace
