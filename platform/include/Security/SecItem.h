// Queries of the keychain.
#pragma once

#import <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma clang assume_nonnull begin

extern const CFStringRef kSecClass;
extern const CFStringRef kSecClassCertificate;
extern const CFStringRef kSecClassKey;

extern const CFStringRef kSecAttrAccessGroup;
extern const CFStringRef kSecAttrAccessGroupToken;
extern const CFStringRef kSecAttrTokenID;
extern const CFStringRef kSecAttrLabel;
extern const CFStringRef kSecAttrApplicationLabel;  // a key's; SHA-1 of its public half
extern const CFStringRef kSecAttrPublicKeyHash;     // a certificate's; the same
extern const CFStringRef kSecAttrKeyType;
extern const CFStringRef kSecAttrKeyTypeRSA;
extern const CFStringRef kSecAttrKeyTypeECSECPrimeRandom;
extern const CFStringRef kSecAttrKeySizeInBits;
extern const CFStringRef kSecAttrCanSign;
extern const CFStringRef kSecAttrCanDecrypt;
extern const CFStringRef kSecAttrKeyClass;
extern const CFStringRef kSecAttrKeyClassPrivate;

extern const CFStringRef kSecMatchLimit;
extern const CFStringRef kSecMatchLimitAll;
extern const CFStringRef kSecReturnRef;
extern const CFStringRef kSecReturnAttributes;
extern const CFStringRef kSecValueRef;

// Finds the items that have the attributes of a query; a token's only when the query names
// kSecAttrAccessGroup or kSecAttrTokenID.
//   result   one value, or with kSecMatchLimitAll an array; the caller owns it. A value is what the
//            query asks for, or, when it asks for several things, a dictionary of them. Left alone
//            when nothing is found.
// Returns 0, or errSecItemNotFound (-25300).
OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef _Nullable* _Nullable result);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
