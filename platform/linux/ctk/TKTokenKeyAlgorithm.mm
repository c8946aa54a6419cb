// What a request carries: its algorithms, and the parameters of a key exchange.
#import <CryptoTokenKit/TKToken.h>

#import "platform/linux/ctk/TKHostInterface.h"

@implementation TKTokenKeyAlgorithm

- (BOOL)isAlgorithm:(SecKeyAlgorithm)algorithm {
  return [[_algorithms lastObject] isEqual:(NSString *)algorithm];
}

- (BOOL)supportsAlgorithm:(SecKeyAlgorithm)algorithm {
  return [_algorithms containsObject:(NSString *)algorithm];
}

- (void)dealloc {
  [_algorithms release];
  [super dealloc];
}

@end

@implementation TKTokenKeyAlgorithm (Host)

- (instancetype)initWithAlgorithms:(NSArray<NSString *> *)algorithms {
  self = [super init];
  if (self != nil) _algorithms = [algorithms copy];
  return self;
}

- (NSArray<NSString *> *)algorithms {
  return _algorithms;
}

@end

@implementation TKTokenKeyExchangeParameters

@synthesize requestedSize = _requestedSize;
@synthesize sharedInfo = _sharedInfo;

- (void)dealloc {
  [_sharedInfo release];
  [super dealloc];
}

@end

@implementation TKTokenKeyExchangeParameters (Host)

- (instancetype)initWithRequestedSize:(NSInteger)size sharedInfo:(NSData *)sharedInfo {
  self = [super init];
  if (self != nil) {
    _requestedSize = size;
    _sharedInfo = [sharedInfo copy];
  }
  return self;
}

@end
