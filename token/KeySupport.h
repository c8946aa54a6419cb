// Whether a key of the card can perform an operation with an algorithm.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@class Token;

// Judges by the public half of the key: that it exists, that it carries the usage flag of the
// operation, and that the algorithm's mechanism is among its allowed ones.
//   token        the token, initialised.
//   operation    the operation; key exchange is never supported.
//   keyObjectID  the key's object ID.
//   algorithm    the algorithm.
// Returns the answer; what failed is in the log.
BOOL KeySupports(Token *token, TKTokenOperation operation, NSData *keyObjectID,
                 TKTokenKeyAlgorithm *algorithm);
