// What the host that plays the system needs from the stand-in's classes beyond Apple's interface.
//
// Threads: any thread may use Foundation; GNUstep registers a thread at its first message, so
// GSRegisterCurrentThread is not needed. Each thread needs an autorelease pool (@autoreleasepool)
// around its work: without one every autoreleased object is leaked and reported on standard error.
// Messages cannot be sent from C++ initialisers that run before main: selectors of the image are
// not resolved yet. The constants (TKErrorDomain, kSecKeyAlgorithm...) may be read there. Run with
// LC_ALL=C.UTF-8, or non-ASCII C strings are not read as UTF-8.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#pragma clang assume_nonnull begin

@interface TKTokenKeyAlgorithm (Host)
// `algorithms`: key algorithm strings from the requested one to the target, in order.
- (instancetype)initWithAlgorithms:(NSArray<NSString *> *)algorithms;
- (NSArray<NSString *> *)algorithms;
@end

@interface TKTokenKeyExchangeParameters (Host)
- (instancetype)initWithRequestedSize:(NSInteger)size sharedInfo:(nullable NSData *)sharedInfo;
@end

@interface TKToken (Host)
// Makes the next initialiser of a token return nil, once.
+ (void)failNextInitialisation;
// Nil when the token's initialiser never ran.
- (nullable NSString *)instanceID;
@end

@interface TKTokenSession (Host)
// Makes the next initialiser of a session return nil, once.
+ (void)failNextInitialisation;
@end

@interface TKTokenKeychainItem (Host)
// Whether initialisers take the label from the certificate's subject summary (YES at the start).
+ (void)setLabelsFromSubject:(BOOL)enabled;
@end

@interface TKTokenKeychainContents (Host)
- (instancetype)initForToken;
@end

#pragma clang assume_nonnull end
