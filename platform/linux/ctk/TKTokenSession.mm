#import <CryptoTokenKit/TKSmartCardToken.h>
#import <CryptoTokenKit/TKToken.h>

#include <atomic>

#import "platform/linux/ctk/TKDelegation.h"
#import "platform/linux/ctk/TKHostInterface.h"

static std::atomic<bool> failNext = false;

@implementation TKTokenSession

- (instancetype)initWithToken:(TKToken *)token {
  if (failNext.exchange(false)) {
    [self release];
    return nil;
  }
  self = [super init];
  if (self != nil) {
    _token = [token retain];
    _delegate = TKOwnDelegate(self, @"TKTokenSessionDelegate");
  }
  return self;
}

- (TKToken *)token {
  return _token;
}

- (id<TKTokenSessionDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenSessionDelegate>)delegate {
  _delegate = delegate;
}

- (void)dealloc {
  [_token release];
  [super dealloc];
}

@end

@implementation TKTokenSession (Host)

+ (void)failNextInitialisation {
  failNext = true;
}

@end

@implementation TKSmartCardTokenSession

- (instancetype)initWithToken:(TKToken *)token {
  return [super initWithToken:token];
}

@end
