// Where this program lies, and what lies beside it.
#pragma once

#include <string>

namespace kelvrin::modulecheck {

// The path by which the program was started: its name as the shell gave it, looked for in PATH when
// it is a bare name. Throws Failure when it is not there.
std::string ProgramPath(const std::string& name);

// The adapter's library: ../lib/NAME, ../adapter/NAME or NAME from the program's folder (as
// installed, as built on Linux, as built for macOS). Empty when none is there.
std::string FindAdapter(const std::string& program);

}  // namespace kelvrin::modulecheck
