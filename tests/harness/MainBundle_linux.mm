#import "platform/linux/ctk/MainBundle.h"

#import "tests/harness/MainBundle.h"

BOOL StandInBundle(NSString *path) { return TKSetMainBundle(path) != nil; }
