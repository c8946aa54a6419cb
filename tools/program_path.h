// Where this program lies, and what lies beside it.
#pragma once

#include <filesystem>
#include <string>

namespace kelvrin::modulecheck {

// The path by which the program was started: its name as the shell gave it, looked for in PATH when
// it is a bare name. Throws Failure when it is not there.
std::filesystem::path ProgramPath(const std::string& name);

// The adapter's library: ../lib/NAME or ../adapter/NAME from the program's folder (as installed,
// and as built). Empty when neither is there.
std::filesystem::path FindAdapter(const std::filesystem::path& program);

}  // namespace kelvrin::modulecheck
