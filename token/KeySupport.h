// Whether a key of the card can perform an operation with an algorithm.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@class TokenSession;

// Judges by the public half of the key: that it exists, that it carries the usage flag of the
// operation, and that the algorithm's mechanism is among its allowed ones.
//   session      the session; its token, which is initialised, is asked for afresh at every use.
//   operation    the operation; key exchange is never supported.
//   keyObjectID  the key's object ID.
//   algorithm    the algorithm.
// Returns the answer; what failed is in the log.
BOOL KeySupports(TokenSession *session, TKTokenOperation operation, NSData *keyObjectID,
                 TKTokenKeyAlgorithm *algorithm);
