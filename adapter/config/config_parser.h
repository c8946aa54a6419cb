// The grammar of the adapter's configuration; config.h tells it.
#pragma once

#include <string>
#include <string_view>

#include "adapter/config/config.h"

namespace kelvrin::adapter {

// Parses the contents of the configuration `file`, an absolute path, whose folder a relative module
// path starts at. Throws SetupError with CKR_GENERAL_ERROR.
Config ParseConfig(const std::string& file, std::string_view contents);

// Throws the SetupError that says `what` about a line of the file, or about the file as a whole
// when the line is 0.
[[noreturn]] void FailConfig(const std::string& file, int line, const std::string& what);

}  // namespace kelvrin::adapter
