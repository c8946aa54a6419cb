// Logs in to the card with the PIN that the platform collected.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@class TokenSession;

@interface TSAuthOperation : TKTokenSmartCardPINAuthOperation {
  TokenSession *_session;
  NSData *_authID;
}

@property (readonly, strong) TokenSession *session;  // the session that began the authentication
@property (readonly, strong)
    NSData *authID;  // the constraint: in fact the string "PIN", as intended

// Keeps the session and the constraint it began with, both strongly.
- (instancetype)initWithSession:(TokenSession *)session authID:(NSData *)authID;

// Hands the PIN to the card as it stands. Returns whether the card accepted it: NO without a PIN,
// and for every result but CKR_OK. The error is never written.
- (BOOL)finishWithError:(NSError **)error;

@end
