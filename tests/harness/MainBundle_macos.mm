#import "tests/harness/MainBundle.h"

BOOL StandInBundle(NSString *path) { return [[[NSBundle mainBundle] bundlePath] isEqual:path]; }
