#import <CryptoTokenKit/TKTokenAuthOperation.h>

@implementation TKTokenAuthOperation

+ (BOOL)supportsSecureCoding {
  return YES;
}

- (instancetype)initWithCoder:(NSCoder *)coder {
  (void)coder;
  return [self init];
}

// A PIN is never archived, and there is nothing else.
- (void)encodeWithCoder:(NSCoder *)coder {
  (void)coder;
}

// The answer of a token that needs no authentication.
- (BOOL)finishWithError:(NSError **)error {
  (void)error;
  return YES;
}

@end

@implementation TKTokenSmartCardPINAuthOperation

@synthesize APDUTemplate = _APDUTemplate;
@synthesize PIN = _PIN;

- (void)dealloc {
  [_APDUTemplate release];
  [_PIN release];
  [super dealloc];
}

@end
