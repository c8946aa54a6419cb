#include <sys/prctl.h>
#include <sys/resource.h>

#include "modulecheck/dumps.h"

namespace kelvrin::modulecheck {

void ForbidCoreFiles() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

void ForbidDumps() { prctl(PR_SET_DUMPABLE, 0); }

}  // namespace kelvrin::modulecheck
