// What a binary offers to others.
#pragma once

#include <set>
#include <string>

#include "tests/macos/expected_binaries.h"
#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// The symbols defined by a slice that its symbol table calls external, and not private.
std::set<std::string> ExternalSymbols(const Slice& slice);

// The symbol table and the exports' table both name exactly what is expected. Nothing is passed on
// from another library.
Findings CheckExports(const MachOFile& file, const Binary& expected);

}  // namespace kelvrin::macos
