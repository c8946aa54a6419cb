// The keychain items that a token publishes.
#pragma once

#import <CryptoTokenKit/TKBase.h>

#pragma clang assume_nonnull begin

@interface TKTokenKeychainItem : NSObject
TK_INSTANCE_VARIABLES(TKTokenObjectID _objectID; NSString * _label;
                      NSDictionary<NSNumber *, TKTokenOperationConstraint> * _constraints;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
- (instancetype)initWithObjectID:(TKTokenObjectID)objectID;
@property (readonly, copy) TKTokenObjectID objectID;
@property (copy, nullable) NSString *label;
@property (copy, nullable) NSDictionary<NSNumber *, TKTokenOperationConstraint> *constraints;
@end

@interface TKTokenKeychainCertificate : TKTokenKeychainItem
TK_INSTANCE_VARIABLES(NSData *_data;)
- (instancetype)initWithObjectID:(TKTokenObjectID)objectID TK_UNAVAILABLE;
- (nullable instancetype)initWithCertificate:(SecCertificateRef)certificate
                                    objectID:(TKTokenObjectID)objectID;
@property (readonly, copy) NSData *data;
@end

@interface TKTokenKeychainKey : TKTokenKeychainItem
TK_INSTANCE_VARIABLES(NSString *_keyType; NSData * _applicationTag; NSInteger _keySizeInBits;
                      NSData * _publicKeyData; NSData * _publicKeyHash; BOOL _canDecrypt;
                      BOOL _canSign; BOOL _canPerformKeyExchange; BOOL _suitableForLogin;)
- (instancetype)initWithObjectID:(TKTokenObjectID)objectID TK_UNAVAILABLE;
- (nullable instancetype)initWithCertificate:(nullable SecCertificateRef)certificate
                                    objectID:(TKTokenObjectID)objectID;
@property (copy) NSString *keyType;
@property (copy, nullable) NSData *applicationTag;
@property NSInteger keySizeInBits;
@property (copy, nullable) NSData *publicKeyData;
@property (copy, nullable) NSData *publicKeyHash;
@property BOOL canDecrypt;
@property BOOL canSign;
@property BOOL canPerformKeyExchange;
@property (getter=isSuitableForLogin) BOOL suitableForLogin;
@end

@interface TKTokenKeychainContents : NSObject
TK_INSTANCE_VARIABLES(NSArray *_items;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
// Replaces all items of the token.
- (void)fillWithItems:(NSArray<TKTokenKeychainItem *> *)items;
@property (readonly, copy) NSArray<TKTokenKeychainItem *> *items;
- (nullable TKTokenKeychainKey *)keyForObjectID:(TKTokenObjectID)objectID error:(NSError **)error;
- (nullable TKTokenKeychainCertificate *)certificateForObjectID:(TKTokenObjectID)objectID
                                                          error:(NSError **)error;
@end

#pragma clang assume_nonnull end
