// KelvrinToken.app: registers the extension by being there, and shows what the extension and the
// card do.
#import "app/Application.h"
#include "app/system/apple_system.h"

int main(int argc, char **argv) {
  @autoreleasepool {
    NSBundle *bundle = [NSBundle mainBundle];
    kelvrin::app::AppleSystem system(bundle);
    return kelvrin::app::RunApplication(bundle, &system, argc, argv);
  }
}
