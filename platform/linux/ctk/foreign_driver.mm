// A driver as an extension has it: in a library that is loaded at run time.
#import <CryptoTokenKit/CryptoTokenKit.h>

#pragma clang diagnostic ignored "-Wunused-parameter"

@interface ForeignDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end

@implementation ForeignDriver

- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  return nil;
}

@end
