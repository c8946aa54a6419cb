// Where the adapter itself lies.
#pragma once

#include <string>

namespace kelvrin::adapter {

// The absolute path, as it was given to the dynamic linker, of the library (or program) that holds
// this function. Symbolic links are kept: the name under which the library was opened decides.
// Throws std::runtime_error when the linker does not know it or the working folder has no path.
std::string OwnLibrary();

// Keeps the library that holds this function mapped until the process ends, however often it is
// closed. Where the dynamic linker refuses, nothing changes.
void StayMapped();

}  // namespace kelvrin::adapter
