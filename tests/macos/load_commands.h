// What the headers and load commands of a binary say to the loader.
#pragma once

#include <cstdint>
#include <string>

#include "tests/macos/expected_binaries.h"
#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// A version as headers pack it (16, 8 and 8 bits), as text: "10.14.6", "11.0.0".
std::string VersionText(uint32_t packed);

// Exactly the slices x86_64 and arm64, in this order.
Findings CheckSlices(const MachOFile& file);

// The file type, and exactly the flags of something linked completely, with two-level
// names: an executable that may lie anywhere, a library with variables of threads.
Findings CheckHeader(const MachOFile& file, const Binary& expected);

// One build version: macOS, from 10.14.6 (x86_64) or 11.0 (arm64) on, SDK 14.5.
Findings CheckBuildVersion(const MachOFile& file);

// The run paths, in order.
Findings CheckRunPaths(const MachOFile& file, const Binary& expected);

// The libraries with their compatibility versions, in order, none of them weak, re-exported or
// loaded in another special way.
Findings CheckLibraries(const MachOFile& file, const Binary& expected);

// A library's own install name; executables have none.
Findings CheckInstallName(const MachOFile& file, const Binary& expected);

}  // namespace kelvrin::macos
