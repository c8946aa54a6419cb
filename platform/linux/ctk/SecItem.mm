// The keychain's queries. There is no keychain but the items of the tokens that the host has
// published.
#import <Foundation/Foundation.h>
#import <Security/SecItem.h>

#import "platform/linux/ctk/SecKeys.h"
#include "platform/linux/ctk/certificate_details.h"

// The hash of a certificate's public key; nil when its kind is unknown.
static NSData *PublicKeyHash(NSData *certificate) {
  const auto key = certificate::PublicKeyOf(static_cast<const uint8_t *>([certificate bytes]),
                                            [certificate length]);
  return key ? [NSData dataWithBytes:key->hash.data() length:key->hash.size()] : nil;
}

// What a query may ask for of an item; nil for one that is neither certificate nor key.
static NSDictionary *AttributesOf(TKTokenKeychainItem *item, TKSystemToken *token) {
  NSMutableDictionary *attributes = [NSMutableDictionary dictionary];
  if ([item isKindOfClass:[TKTokenKeychainKey class]]) {
    [attributes setDictionary:[TKTokenKey attributesOfItem:(TKTokenKeychainKey *)item
                                                   ofToken:token]];
    [attributes setObject:(id)kSecClassKey forKey:(id)kSecClass];
  } else if ([item isKindOfClass:[TKTokenKeychainCertificate class]]) {
    [attributes setValue:PublicKeyHash([(TKTokenKeychainCertificate *)item data])
                  forKey:(id)kSecAttrPublicKeyHash];
    [attributes setObject:[token tokenID] forKey:(id)kSecAttrTokenID];
    [attributes setObject:(id)kSecClassCertificate forKey:(id)kSecClass];
  } else {
    return nil;
  }
  [attributes setObject:(id)kSecAttrAccessGroupToken forKey:(id)kSecAttrAccessGroup];
  [attributes setValue:[item label] forKey:(id)kSecAttrLabel];
  return attributes;
}

// Whether the attributes are all those that a query names.
static bool Match(NSDictionary *attributes, NSDictionary *query) {
  NSMutableDictionary *named = [NSMutableDictionary dictionaryWithDictionary:query];
  [named removeObjectsForKeys:@[ (id)kSecMatchLimit, (id)kSecReturnRef, (id)kSecReturnAttributes ]];
  for (NSString *name in named) {
    if (![[named objectForKey:name] isEqual:[attributes objectForKey:name]]) return false;
  }
  return attributes != nil;
}

// The certificate or key itself.
static id ReferenceTo(TKTokenKeychainItem *item, TKSystemToken *token) {
  if ([item isKindOfClass:[TKTokenKeychainCertificate class]]) {
    return [(TKTokenKeychainCertificate *)item data];
  }
  return [[[TKTokenKey alloc] initWithItem:(TKTokenKeychainKey *)item ofToken:token] autorelease];
}

// What a query wants of an item that it found.
static id ValueOf(NSDictionary *query, NSDictionary *attributes, id reference) {
  if (![[query objectForKey:(id)kSecReturnAttributes] boolValue]) return reference;
  if (![[query objectForKey:(id)kSecReturnRef] boolValue]) return attributes;
  NSMutableDictionary *value = [NSMutableDictionary dictionaryWithDictionary:attributes];
  [value setObject:reference forKey:(id)kSecValueRef];
  return value;
}

// The values of all items that a query finds.
static NSArray *ValuesOf(NSDictionary *query) {
  NSMutableArray *values = [NSMutableArray array];
  if ([query objectForKey:(id)kSecAttrAccessGroup] == nil &&
      [query objectForKey:(id)kSecAttrTokenID] == nil) {
    return values;
  }
  for (TKSystemToken *token in TKSystemTokens()) {
    for (TKTokenKeychainItem *item in [token items]) {
      NSDictionary *attributes = AttributesOf(item, token);
      if (!Match(attributes, query)) continue;
      [values addObject:ValueOf(query, attributes, ReferenceTo(item, token))];
    }
  }
  return values;
}

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef *result) {
  @autoreleasepool {
    NSDictionary *wish = (NSDictionary *)query;
    NSArray *values = ValuesOf(wish);
    if ([values count] == 0) return kSecItemNotFoundStatus;
    if (result == nullptr) return 0;
    const BOOL all = [[wish objectForKey:(id)kSecMatchLimit] isEqual:(id)kSecMatchLimitAll];
    *result = [(all ? values : [values objectAtIndex:0]) retain];
    return 0;
  }
}
