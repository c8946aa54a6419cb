// A session of the token: logs in with the PIN, decides which algorithms a key supports, and signs,
// decrypts and agrees keys on the card.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@class Token;

@interface TokenSession : TKSmartCardTokenSession <TKTokenSessionDelegate> {
  Token *_tsToken;
}

@property (readonly, strong) Token *tsToken;  // the token that made the session

// Makes a session that holds the token, which must be a Token. Returns nil when the superclass
// does.
- (instancetype)initWithToken:(TKToken *)token;

// Returns upper-case hexadecimal text, two digits per byte, autoreleased.
- (NSString *)asHex:(NSData *)data;

@end
