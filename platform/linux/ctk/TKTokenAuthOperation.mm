#import <CryptoTokenKit/TKTokenAuthOperation.h>

static NSString *const kTemplateKey = @"APDUTemplate";

@implementation TKTokenAuthOperation

+ (BOOL)supportsSecureCoding {
  return YES;
}

- (instancetype)initWithCoder:(NSCoder *)coder {
  (void)coder;
  return [self init];
}

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

- (instancetype)initWithCoder:(NSCoder *)coder {
  self = [super initWithCoder:coder];
  if (self != nil) _APDUTemplate = [[coder decodeObjectForKey:kTemplateKey] copy];
  return self;
}

// A PIN is never archived.
- (void)encodeWithCoder:(NSCoder *)coder {
  [super encodeWithCoder:coder];
  [coder encodeObject:[self APDUTemplate] forKey:kTemplateKey];
}

- (void)dealloc {
  [_APDUTemplate release];
  [_PIN release];
  [super dealloc];
}

@end
