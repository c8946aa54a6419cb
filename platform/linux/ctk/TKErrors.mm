#import <CryptoTokenKit/TKBase.h>

NSString *const TKErrorDomain = @"CryptoTokenKit";
