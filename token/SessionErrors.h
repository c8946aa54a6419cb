// Errors that a session hands to CryptoTokenKit.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

// Makes an error of TKErrorDomain with a description as its only user info, autoreleased.
NSError *SessionError(TKErrorCode code, NSString *description);
