#include "token/testing/leaks.h"

#include <stdlib.h>

#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>

// The sanitizer looks for this name. The Objective-C runtime keeps its classes, a bring-up its slot
// array, and a failed set-up its module.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions() {
  return "leak:objc_malloc\n"
         "leak:class_copyMethodList\n"
         "leak:list_allocated_slots\n"
         "leak:C_LoadModule\n";
}
#else
static void __lsan_disable() {}
static void __lsan_enable() {}
#endif

namespace token_testing {

LeaksAllowed::LeaksAllowed() { __lsan_disable(); }
LeaksAllowed::~LeaksAllowed() { __lsan_enable(); }

namespace {

// Before Foundation settles what C strings are encoded in.
__attribute__((constructor)) void SetLocale() { setenv("LC_ALL", "C.UTF-8", 1); }

// Has Foundation make what it keeps from its first use on.
void UseFoundation() {
  const LeaksAllowed allowed;
  @autoreleasepool {
    NSString *path = [[NSBundle mainBundle] bundlePath];
    [[NSFileManager defaultManager] fileExistsAtPath:[NSString stringWithFormat:@"%@/x", path]];
  }
}

}  // namespace

Pool::Pool() {
  UseFoundation();
  pool_ = [[NSAutoreleasePool alloc] init];
}

Pool::~Pool() { [pool_ drain]; }

}  // namespace token_testing
