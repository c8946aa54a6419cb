#import "token/KeychainItemName.h"

@implementation TKTokenKeychainItem (KelvrinDataFormat)

- (void)setName:(NSString *)name {
  NSString *label = [self label];
  if (label != nil) {
    [self setLabel:[NSString stringWithFormat:@"%@ (%@)", name, label]];
  } else {
    [self setLabel:name];
  }
}

@end
