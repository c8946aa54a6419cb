// Where the PIN comes from.
#pragma once

#include <string>

#include "encoding/secret.h"

namespace kelvrin::modulecheck {

using encoding::Secret;

// Takes the one line of the file `path`, without its end, as the PIN. Throws Failure, which names
// the file and never its contents, when it is no plain file, cannot be read, has no PIN, one that
// is too long or a second line: which of two was meant would cost a try to find out.
void ReadPinFile(const std::string& path, Secret* pin);

// Takes everything that the descriptor gives until its end.
void ReadPin(int descriptor, Secret* pin);

}  // namespace kelvrin::modulecheck
