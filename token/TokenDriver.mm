#import "token/TokenDriver.h"

#include <os/log.h>

#import "token/Token.h"

@implementation TokenDriver

// Makes the token of an inserted card. What its set-up returned is passed on as it is.
- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  (void)driver;  // the driver is its own delegate
  [smartCard retain];
  [AID retain];
  // Empty on purpose: it marks in the log where a card's lines begin.
  os_log(OS_LOG_DEFAULT, "");
  Token *token = [[Token alloc] initWithSmartCard:smartCard AID:AID tokenDriver:self error:error];
  [AID release];
  [smartCard release];
  return [token autorelease];
}

@end
