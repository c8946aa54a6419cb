// The first function of an executable.
#pragma once

#include "tests/macos/expected_binaries.h"
#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// Each slice begins with the expected function: the stub of that import, or a function of its own.
// A library has no entry. Stripped files do not name their own functions; a name that is there must
// be the expected one.
Findings CheckEntry(const MachOFile& file, const Binary& expected);

}  // namespace kelvrin::macos
