#import "platform/linux/ctk/MainBundle.h"

#import "tests/harness/MainBundle.h"

// What the leak sanitizer is told, which looks for these names: the Objective-C runtime keeps its
// classes, a bring-up its slot array, and a failed set-up its module.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
const char *__lsan_default_options() { return "fast_unwind_on_malloc=0:print_suppressions=0"; }
const char *__lsan_default_suppressions() {
  return "leak:libobjc.so\nleak:list_allocated_slots\nleak:C_LoadModule\n";
}
}
// NOLINTEND(bugprone-reserved-identifier)

BOOL StandInBundle(NSString *path) { return TKSetMainBundle(path) != nil; }
