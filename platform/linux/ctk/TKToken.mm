#import <CryptoTokenKit/TKSmartCardToken.h>
#import <CryptoTokenKit/TKTokenKeychain.h>

#include <atomic>

#import "platform/linux/ctk/TKDelegation.h"
#import "platform/linux/ctk/TKHostInterface.h"

static std::atomic<bool> failNext = false;

// A token may be used, and released, though its initialiser never ran: an extension can hand out
// such a token after a failed set-up. Everything then is nil.
@implementation TKToken

- (instancetype)initWithTokenDriver:(TKTokenDriver *)tokenDriver instanceID:(NSString *)instanceID {
  if (failNext.exchange(false)) {
    [self release];
    return nil;
  }
  self = [super init];
  if (self != nil) {
    _tokenDriver = [tokenDriver retain];
    _instanceID = [instanceID copy];
    _delegate = TKOwnDelegate(self, @"TKTokenDelegate");
    _keychainContents = [[TKTokenKeychainContents alloc] initForToken];
  }
  return self;
}

- (TKTokenDriver *)tokenDriver {
  return _tokenDriver;
}

- (id<TKTokenDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenDelegate>)delegate {
  _delegate = delegate;
}

- (TKTokenKeychainContents *)keychainContents {
  return _keychainContents;
}

- (void)dealloc {
  [_keychainContents release];
  [_instanceID release];
  [_tokenDriver release];
  [super dealloc];
}

@end

@implementation TKToken (Host)

+ (void)failNextInitialisation {
  failNext = true;
}

- (NSString *)instanceID {
  return _instanceID;
}

@end

@implementation TKSmartCardToken

- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                       instanceID:(NSString *)instanceID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver {
  (void)smartCard;  // never used: the extension reaches the card its own way
  self = [super initWithTokenDriver:tokenDriver instanceID:instanceID];
  if (self != nil) _AID = [AID copy];
  return self;
}

- (NSData *)AID {
  return _AID;
}

- (void)dealloc {
  [_AID release];
  [super dealloc];
}

@end
