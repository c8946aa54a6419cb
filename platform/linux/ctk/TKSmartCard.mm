#import <CryptoTokenKit/TKSmartCardToken.h>

@implementation TKSmartCard
@end
