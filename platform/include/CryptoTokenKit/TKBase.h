// Names that all of CryptoTokenKit shares: errors, operations, identifiers.
#pragma once

#import <Foundation/Foundation.h>
#import <Security/Security.h>

// Apple's classes keep their instance variables to themselves; the stand-in has to name its own.
#ifdef __APPLE__
#define TK_INSTANCE_VARIABLES(...)
#define TK_EXPORT extern
#else
#define TK_INSTANCE_VARIABLES(...) {__VA_ARGS__}
#define TK_EXPORT extern "C"
#endif
#define TK_UNAVAILABLE __attribute__((unavailable))

#pragma clang assume_nonnull begin

TK_EXPORT NSString *const TKErrorDomain;

typedef NS_ENUM(NSInteger, TKErrorCode) {
  TKErrorCodeNotImplemented = -1,
  TKErrorCodeCommunicationError = -2,
  TKErrorCodeCorruptedData = -3,
  TKErrorCodeCanceledByUser = -4,
  TKErrorCodeAuthenticationFailed = -5,
  TKErrorCodeObjectNotFound = -6,
  TKErrorCodeTokenNotFound = -7,
  TKErrorCodeBadParameter = -8,
  TKErrorCodeAuthenticationNeeded = -9,
};

typedef NS_ENUM(NSInteger, TKTokenOperation) {
  TKTokenOperationReadData = 1,
  TKTokenOperationSignData = 2,
  TKTokenOperationDecryptData = 3,
  TKTokenOperationPerformKeyExchange = 4,
};

// A property-list value, unique among the items of a token.
typedef id TKTokenObjectID;

// TRUE, FALSE, or a property-list value that is handed back when an operation needs authentication.
typedef id TKTokenOperationConstraint;

#pragma clang assume_nonnull end
