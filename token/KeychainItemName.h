// Names keychain items.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

@interface TKTokenKeychainItem (KelvrinDataFormat)

// Sets the label to the name; a label that is there already, an empty one too, follows it in
// parentheses.
- (void)setName:(NSString *)name;

@end
