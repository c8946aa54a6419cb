// A module whose C_GetFunctionList fails with the result that the build chose, and which says on
// standard error when it is closed.
#include <unistd.h>

__attribute__((destructor)) static void SayClosed(void) {
  const ssize_t written = write(2, "closed", 6);
  (void)written;
}

__attribute__((visibility("default"))) unsigned long C_GetFunctionList(void** list) {
  (void)list;
  return FAILING_MODULE_RESULT;
}
