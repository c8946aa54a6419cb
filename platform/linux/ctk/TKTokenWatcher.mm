// The list of tokens that the host has published, and those who watch it.
#import <CryptoTokenKit/TKTokenWatcher.h>

#include <algorithm>
#include <mutex>
#include <vector>

#import "platform/linux/ctk/TKSystem.h"

// Guards what follows, and the release of watchers: while it is held, none of them begins to go.
static std::recursive_mutex lock;
static std::vector<TKTokenWatcher *> watchers;  // not retained
static NSArray<TKSystemToken *> *tokens = nil;  // nil before the first

@interface TKTokenWatcher (System)
- (void)refresh;
@end

@interface TKTokenWatcherTokenInfo (System)
- (instancetype)initWithToken:(TKSystemToken *)token;
@end

NSArray<TKSystemToken *> *TKSystemTokens() {
  const std::lock_guard guard(lock);
  return tokens == nil ? @[] : [[tokens retain] autorelease];
}

// The published token of an ID; nil when there is none.
static TKSystemToken *TokenOfID(NSString *tokenID) {
  for (TKSystemToken *token in TKSystemTokens()) {
    if ([[token tokenID] isEqual:tokenID]) return token;
  }
  return nil;
}

// Replaces the tokens and has every watcher look again, outside the lock: observers may ask.
static void ReplaceTokens(NSArray<TKSystemToken *> *replacement) {
  NSMutableArray<TKTokenWatcher *> *told = [NSMutableArray array];
  {
    const std::lock_guard guard(lock);
    [tokens release];
    tokens = [replacement copy];
    for (TKTokenWatcher *watcher : watchers) [told addObject:watcher];
  }
  for (TKTokenWatcher *watcher in told) [watcher refresh];
}

void TKSystemAddToken(TKSystemToken *token) {
  @autoreleasepool {
    ReplaceTokens([TKSystemTokens() arrayByAddingObject:token]);
  }
}

void TKSystemRemoveToken(NSString *tokenID) {
  @autoreleasepool {
    TKSystemToken *token = TokenOfID(tokenID);
    NSMutableArray *rest = [NSMutableArray arrayWithArray:TKSystemTokens()];
    [rest removeObject:token];
    [token end];
    ReplaceTokens(rest);
  }
}

@implementation TKTokenWatcherTokenInfo

@synthesize tokenID = _tokenID;
@synthesize slotName = _slotName;

- (instancetype)initWithToken:(TKSystemToken *)token {
  self = [super init];
  if (self != nil) {
    _tokenID = [[token tokenID] copy];
    _slotName = [[token slotName] copy];
  }
  return self;
}

- (void)dealloc {
  [_tokenID release];
  [_slotName release];
  [super dealloc];
}

@end

@implementation TKTokenWatcher

- (instancetype)init {
  self = [super init];
  if (self != nil) {
    const std::lock_guard guard(lock);
    _tokenIDs = [[TKSystemTokens() valueForKey:@"tokenID"] retain];
    watchers.push_back(self);
  }
  return self;
}

// Takes over the tokens there are now, whatever the change was.
- (void)refresh {
  [self willChangeValueForKey:@"tokenIDs"];
  {
    const std::lock_guard guard(lock);
    [_tokenIDs release];
    _tokenIDs = [[TKSystemTokens() valueForKey:@"tokenID"] retain];
  }
  [self didChangeValueForKey:@"tokenIDs"];
}

- (NSArray<NSString *> *)tokenIDs {
  const std::lock_guard guard(lock);
  return [[_tokenIDs retain] autorelease];
}

- (TKTokenWatcherTokenInfo *)tokenInfoForTokenID:(NSString *)tokenID {
  TKSystemToken *token = TokenOfID(tokenID);
  return token == nil ? nil : [[[TKTokenWatcherTokenInfo alloc] initWithToken:token] autorelease];
}

// A change on another thread cannot retain what is on its way to dealloc.
- (oneway void)release {
  const std::lock_guard guard(lock);
  [super release];
}

- (void)dealloc {
  watchers.erase(std::ranges::find(watchers, self));
  [_tokenIDs release];
  [super dealloc];
}

@end
