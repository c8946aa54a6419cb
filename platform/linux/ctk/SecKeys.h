// The objects behind SecKeyRef.
#pragma once

#import "platform/linux/ctk/TKSystem.h"

#pragma clang assume_nonnull begin

// Objects that leave a method are autoreleased. `error`: where a result is nil or NO.
@protocol TKSecKey <NSObject>
- (nullable NSDictionary<NSString *, id> *)attributes;
- (nullable NSData *)externalRepresentationWithError:(NSError **)error;
- (BOOL)supportsOperation:(SecKeyOperationType)operation algorithm:(NSString *)algorithm;
// Signs, encrypts or decrypts.
- (nullable NSData *)performOperation:(SecKeyOperationType)operation
                            algorithm:(NSString *)algorithm
                                 data:(NSData *)data
                                error:(NSError **)error;
- (BOOL)verifySignature:(NSData *)signature
                 ofData:(NSData *)data
              algorithm:(NSString *)algorithm
                  error:(NSError **)error;
@end

// The public key of a certificate.
@interface TKPublicKey : NSObject <TKSecKey> {
  NSData *_info;  // its SubjectPublicKeyInfo
  NSData *_data;  // PKCS#1 RSAPublicKey, or 04 X Y
  NSDictionary *_attributes;
}
// `certificate`: in DER. Nil when the key's kind is unknown.
- (nullable instancetype)initWithCertificate:(NSData *)certificate;
@end

// The private key of an item of a token.
@interface TKTokenKey : NSObject <TKSecKey> {
  TKSystemToken *_token;
  TKTokenKeychainKey *_item;
}
- (instancetype)initWithItem:(TKTokenKeychainKey *)item ofToken:(TKSystemToken *)token;
// As `attributes`, whether the token is gone or not.
+ (NSDictionary<NSString *, id> *)attributesOfItem:(TKTokenKeychainKey *)item
                                           ofToken:(TKSystemToken *)token;
@end

// Codes of Security's own errors.
constexpr OSStatus kSecParameterStatus = -50;        // errSecParam
constexpr OSStatus kSecUnimplementedStatus = -4;     // errSecUnimplemented
constexpr OSStatus kSecItemNotFoundStatus = -25300;  // errSecItemNotFound
constexpr OSStatus kSecVerifyFailedStatus = -67808;  // errSecVerifyFailed
constexpr OSStatus kSecDecodeStatus = -26275;        // errSecDecode

// Fills in an error of Security's own; `error` may be null.
void TKSetStatus(NSError *_Nullable *_Nullable error, OSStatus status, NSString *description);

#pragma clang assume_nonnull end
