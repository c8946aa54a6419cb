#import <CryptoTokenKit/TKSmartCardToken.h>
#import <CryptoTokenKit/TKToken.h>

#import "platform/linux/ctk/TKDelegation.h"

@implementation TKTokenDriver

- (instancetype)init {
  self = [super init];
  if (self != nil) _delegate = TKOwnDelegate(self, @"TKTokenDriverDelegate");
  return self;
}

- (id<TKTokenDriverDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenDriverDelegate>)delegate {
  _delegate = delegate;
}

@end

@implementation TKSmartCardTokenDriver
@end
