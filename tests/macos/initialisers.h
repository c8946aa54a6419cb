// What the loader runs of a binary before its entry.
#pragma once

#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// Nothing: no initialisers, no routine of a library, no class or category with a method +load.
Findings CheckNothingRunsBeforeTheEntry(const MachOFile& file);

}  // namespace kelvrin::macos
