// Whether two folders are the same.
#pragma once

#include <filesystem>

#include "tests/macos/findings.h"

namespace kelvrin::macos {

// The same names, kinds, modes, targets of links and bytes, in all folders below. Throws
// std::filesystem::filesystem_error when one of the two is missing.
Findings CompareFolders(const std::filesystem::path& one, const std::filesystem::path& other);

}  // namespace kelvrin::macos
