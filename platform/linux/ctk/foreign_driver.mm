// A driver as an extension has it: in a library that is loaded at run time.
#import <CryptoTokenKit/CryptoTokenKit.h>

@interface ForeignDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end

@implementation ForeignDriver

- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  (void)driver;
  (void)smartCard;
  (void)AID;
  (void)error;
  return nil;
}

@end
