#include "app/system/keychain.h"

#include <algorithm>
#include <tuple>

#import "app/strings.h"
#import "app/system/certificate_reader.h"

namespace kelvrin::app {
namespace {

// A query for items of a token, which only those get that name it.
NSMutableDictionary *QueryFor(const std::string &token_id, CFStringRef itemClass) {
  NSMutableDictionary *query = [NSMutableDictionary dictionary];
  [query setObject:(NSString *)itemClass forKey:(NSString *)kSecClass];
  [query setObject:(NSString *)kSecAttrAccessGroupToken forKey:(NSString *)kSecAttrAccessGroup];
  [query setObject:ToString(token_id) forKey:(NSString *)kSecAttrTokenID];
  return query;
}

NSNumber *Yes() { return [NSNumber numberWithBool:YES]; }

// Returns a dictionary for each item, with the reference where `wantsReference`; autoreleased.
NSArray *Find(const std::string &token_id, CFStringRef itemClass, BOOL wantsReference) {
  NSMutableDictionary *query = QueryFor(token_id, itemClass);
  [query setObject:(NSString *)kSecMatchLimitAll forKey:(NSString *)kSecMatchLimit];
  [query setObject:Yes() forKey:(NSString *)kSecReturnAttributes];
  if (wantsReference) [query setObject:Yes() forKey:(NSString *)kSecReturnRef];
  CFTypeRef items = nullptr;
  if (SecItemCopyMatching((CFDictionaryRef)query, &items) != 0) return nil;
  return [(NSArray *)items autorelease];
}

BOOL Has(NSDictionary *item, CFStringRef attribute) {
  // The value may be a number or a text.
  return [[item objectForKey:(NSString *)attribute] integerValue] != 0;
}

// Takes what the token says of the key that belongs to a certificate, when there is one.
void TakeKey(NSArray *keys, Certificate *certificate) {
  for (NSUInteger i = 0; i < [keys count]; ++i) {
    NSDictionary *key = [keys objectAtIndex:i];
    id hash = [key objectForKey:(NSString *)kSecAttrApplicationLabel];
    if (![hash isEqual:ToData(certificate->key_hash)]) continue;
    certificate->has_key = true;
    certificate->key_label = ToText([key objectForKey:(NSString *)kSecAttrLabel]);
    certificate->can_sign = Has(key, kSecAttrCanSign) != NO;
    certificate->can_decrypt = Has(key, kSecAttrCanDecrypt) != NO;
    // That it may agree on keys is not told: the extension performs no key exchange.
    return;
  }
}

}  // namespace

std::vector<Certificate> ReadCertificates(const std::string &token_id) {
  NSArray *items = Find(token_id, kSecClassCertificate, YES);
  NSArray *keys = Find(token_id, kSecClassKey, NO);
  std::vector<Certificate> certificates;
  for (NSUInteger i = 0; i < [items count]; ++i) {
    NSDictionary *item = [items objectAtIndex:i];
    id reference = [item objectForKey:(NSString *)kSecValueRef];
    if (reference == nil) continue;  // it has gone since it was found
    Certificate certificate = ReadCertificate((SecCertificateRef)reference);
    certificate.token_id = token_id;
    certificate.key_hash = ToBytes([item objectForKey:(NSString *)kSecAttrPublicKeyHash]);
    TakeKey(keys, &certificate);
    certificates.push_back(std::move(certificate));
  }
  std::ranges::sort(certificates, {}, [](const Certificate &certificate) {
    return std::tie(certificate.name, certificate.fingerprint);
  });
  return certificates;
}

SecKeyRef CopyKey(const Certificate &certificate) {
  NSMutableDictionary *query = QueryFor(certificate.token_id, kSecClassKey);
  [query setObject:ToData(certificate.key_hash) forKey:(NSString *)kSecAttrApplicationLabel];
  [query setObject:Yes() forKey:(NSString *)kSecReturnRef];
  CFTypeRef key = nullptr;
  if (SecItemCopyMatching((CFDictionaryRef)query, &key) != 0) return nullptr;
  return (SecKeyRef)key;
}

}  // namespace kelvrin::app
