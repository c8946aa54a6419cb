#include <sys/resource.h>

#include "modulecheck/dumps.h"

namespace kelvrin::modulecheck {

void ForbidCoreFiles() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

// Core files are all that macOS leaves.
void ForbidDumps() {}

}  // namespace kelvrin::modulecheck
