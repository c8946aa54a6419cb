// Where tokenhost takes the PIN from.
#pragma once

#include <string>

#include "platform/linux/host/result.h"
#include "platform/linux/host/secret.h"

namespace tokenhost {

// The file's content without the newline at its end.
host::Result<host::Secret> read_pin_file(const std::string& path);

// Asks on the terminal, which does not show what is typed. Fails when there is no terminal.
host::Result<host::Secret> ask_for_pin();

}  // namespace tokenhost
