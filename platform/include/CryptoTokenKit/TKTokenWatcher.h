// The tokens that the system has now.
#pragma once

#import <CryptoTokenKit/TKBase.h>

#pragma clang assume_nonnull begin

// What the system knows of one token, from macOS 12 on.
@interface TKTokenWatcherTokenInfo : NSObject
TK_INSTANCE_VARIABLES(NSString *_tokenID; NSString * _slotName;)
- (instancetype)init TK_UNAVAILABLE;
+ (instancetype)new TK_UNAVAILABLE;
@property (readonly) NSString *tokenID;
@property (readonly, nullable) NSString *slotName;
@end

@interface TKTokenWatcher : NSObject
TK_INSTANCE_VARIABLES(NSArray *_tokenIDs;)
- (instancetype)init;
// Each is <class-id of the extension>:<instance ID>. Observable; changes come on a private thread.
@property (readonly) NSArray<NSString *> *tokenIDs;
// Nil when there is no such token. Ask respondsToSelector: first: it is new in macOS 12.
- (nullable TKTokenWatcherTokenInfo *)tokenInfoForTokenID:(NSString *)tokenID;
@end

#pragma clang assume_nonnull end
