// Whether what a binary takes from libraries is there on the oldest system that it runs on.
#pragma once

#include <map>
#include <string>

#include "tests/macos/findings.h"
#include "tests/macos/imports.h"
#include "tests/macos/link_stubs.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// The symbol table and the bind tables name the same symbols of the same libraries, none of which
// may be missing, and every name shared with other libraries is defined here or imported.
Findings CheckImportTables(const MachOFile& file);

// Every imported symbol is one that the stub of the library named for it exports.
Findings CheckImportsAreInStubs(const MachOFile& file,
                                const std::map<std::string, LinkStub>& stubs);

// The imports are exactly those of a list as ImportLines() gives it, one to a line and sorted.
Findings CheckImportList(const MachOFile& file, const std::string& list);

// Nothing of the C++ runtime is imported: neither of its libraries nor of what they export.
Findings CheckNoCxxRuntime(const MachOFile& file);

// Why the libraries of macOS 10.14 cannot have a symbol; empty when nothing speaks against it.
std::string NewerThanMacOS1014(const std::string& symbol);

// No imported symbol is newer than macOS 10.14.
Findings CheckImportsAreOldEnough(const MachOFile& file);

// No symbol that the stub of the C++ library exports is newer than macOS 10.14.
Findings CheckStubIsOldEnough(const LinkStub& stub);

}  // namespace kelvrin::macos
