// Where tokenhost takes the PIN from.
#pragma once

#include <string>

#include "platform/linux/host/result.h"

namespace tokenhost {

// The one line of a regular file, without its end. Of a file that is anything else nothing is read,
// and a second line is refused: what is no PIN would cost one of the card's tries.
host::Result<host::Secret> ReadPinFile(const std::string& path);

// Asks on the terminal, which does not show what is typed. Fails when there is no terminal.
host::Result<host::Secret> AskForPin();

}  // namespace tokenhost
