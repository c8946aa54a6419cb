// Driver, token and session of a token that sits on a smart card.
#pragma once

#import <CryptoTokenKit/TKToken.h>

#pragma clang assume_nonnull begin

@class TKSmartCardToken, TKSmartCardTokenDriver;

// An inserted card. The extension only passes it on.
@interface TKSmartCard : NSObject
@end

@protocol TKSmartCardTokenDriverDelegate <TKTokenDriverDelegate>
// Called when a card is inserted. Nil says that the card is not the driver's, or that it failed.
- (nullable TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
                   createTokenForSmartCard:(TKSmartCard *)smartCard
                                       AID:(nullable NSData *)AID
                                     error:(NSError **)error;
@end

@interface TKSmartCardTokenSession : TKTokenSession
- (instancetype)initWithToken:(TKToken *)token;
@end

@interface TKSmartCardToken : TKToken
TK_INSTANCE_VARIABLES(NSData *_AID;)
- (instancetype)initWithTokenDriver:(TKTokenDriver *)tokenDriver
                         instanceID:(NSString *)instanceID TK_UNAVAILABLE;
- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(nullable NSData *)AID
                       instanceID:(NSString *)instanceID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver;
@property (readonly, nullable) NSData *AID;
@end

@interface TKSmartCardTokenDriver : TKTokenDriver
@end

#pragma clang assume_nonnull end
