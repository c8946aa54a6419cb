// What the sanitizers are told about Foundation, which is not built with them. Linked into each
// executable that uses it; the sanitizers look for these names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
// Leaks of ours are found; those of the Objective-C runtime, which keeps what it allocates for
// classes, are not reported. The whole stack is needed to tell them apart, and Foundation has no
// frame pointers.
const char* __lsan_default_options() { return "fast_unwind_on_malloc=0:print_suppressions=0"; }
const char* __lsan_default_suppressions() { return "leak:libobjc.so\n"; }
// The runtime and Foundation take their own locks in several orders. And that an array is freed
// after its last reader has let go of it is not seen: Foundation counts references without
// instruments.
const char* __tsan_default_suppressions() {
  return "deadlock:libobjc.so\ndeadlock:libgnustep-base.so\nrace:ValuesOf(NSDictionary\nrace:"
         "TokenOfID(NSString\n";
}
}
// NOLINTEND(bugprone-reserved-identifier)
