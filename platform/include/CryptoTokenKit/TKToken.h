// Token driver, token and token session, with what their delegates implement.
#pragma once

#import <CryptoTokenKit/TKBase.h>

#pragma clang assume_nonnull begin

@class TKToken, TKTokenAuthOperation, TKTokenDriver, TKTokenKeychainContents, TKTokenSession;

// The algorithm an application asked for, those passed through on the way, and the target.
@interface TKTokenKeyAlgorithm : NSObject
TK_INSTANCE_VARIABLES(NSArray *_algorithms;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
// YES for the target algorithm alone.
- (BOOL)isAlgorithm:(SecKeyAlgorithm)algorithm;
// YES for the target and for every algorithm passed through on the way.
- (BOOL)supportsAlgorithm:(SecKeyAlgorithm)algorithm;
@end

@interface TKTokenKeyExchangeParameters : NSObject
TK_INSTANCE_VARIABLES(NSInteger _requestedSize; NSData * _sharedInfo;)
@property (readonly) NSInteger requestedSize;
@property (readonly, copy, nullable) NSData *sharedInfo;
@end

@protocol TKTokenSessionDelegate <NSObject>
@optional
- (nullable TKTokenAuthOperation *)tokenSession:(TKTokenSession *)session
                          beginAuthForOperation:(TKTokenOperation)operation
                                     constraint:(TKTokenOperationConstraint)constraint
                                          error:(NSError **)error;
- (BOOL)tokenSession:(TKTokenSession *)session
    supportsOperation:(TKTokenOperation)operation
             usingKey:(TKTokenObjectID)keyObjectID
            algorithm:(TKTokenKeyAlgorithm *)algorithm;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
                         signData:(NSData *)dataToSign
                         usingKey:(TKTokenObjectID)keyObjectID
                        algorithm:(TKTokenKeyAlgorithm *)algorithm
                            error:(NSError **)error;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
                      decryptData:(NSData *)ciphertext
                         usingKey:(TKTokenObjectID)keyObjectID
                        algorithm:(TKTokenKeyAlgorithm *)algorithm
                            error:(NSError **)error;
- (nullable NSData *)tokenSession:(TKTokenSession *)session
    performKeyExchangeWithPublicKey:(NSData *)otherPartyPublicKeyData
                           usingKey:(TKTokenObjectID)objectID
                          algorithm:(TKTokenKeyAlgorithm *)algorithm
                         parameters:(TKTokenKeyExchangeParameters *)parameters
                              error:(NSError **)error;
@end

@protocol TKTokenDelegate <NSObject>
- (nullable TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error;
@optional
- (void)token:(TKToken *)token terminateSession:(TKTokenSession *)session;
@end

@protocol TKTokenDriverDelegate <NSObject>
@optional
- (void)tokenDriver:(TKTokenDriver *)driver terminateToken:(TKToken *)token;
@end

@interface TKTokenSession : NSObject
TK_INSTANCE_VARIABLES(TKToken *_token; id<TKTokenSessionDelegate> _delegate;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
- (instancetype)initWithToken:(TKToken *)token;
@property (readonly) TKToken *token;
@property (weak, nullable) id<TKTokenSessionDelegate> delegate;
@end

@interface TKToken : NSObject
TK_INSTANCE_VARIABLES(TKTokenDriver *_tokenDriver; NSString * _instanceID;
                      id<TKTokenDelegate> _delegate; TKTokenKeychainContents * _keychainContents;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
- (instancetype)initWithTokenDriver:(TKTokenDriver *)tokenDriver instanceID:(NSString *)instanceID;
@property (readonly) TKTokenDriver *tokenDriver;
@property (weak, nullable) id<TKTokenDelegate> delegate;
@property (readonly, nullable) TKTokenKeychainContents *keychainContents;
@end

@interface TKTokenDriver : NSObject
TK_INSTANCE_VARIABLES(id<TKTokenDriverDelegate> _delegate;)
@property (weak, nullable) id<TKTokenDriverDelegate> delegate;
@end

#pragma clang assume_nonnull end
