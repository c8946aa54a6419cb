// Where the PIN comes from.
#pragma once

#include <string>

#include "modulecheck/secret.h"

namespace kelvrin::modulecheck {

// Keeps this process and its children from leaving their memory in a file when they crash: a PIN
// may be in it.
void ForbidCoreFiles();

// Keeps this process from being dumped at all, where the system has that: a program that takes core
// dumps through a pipe need not heed the limit. Such a process cannot be traced either.
void ForbidDumps();

// Takes the first line of the file `path`, without its end, as the PIN. Throws Failure, which names
// the file and never its contents, when it cannot be read, has no PIN or one that is too long.
void ReadPinFile(const std::string& path, Secret* pin);

// Takes everything that the descriptor gives until its end. Throws Failure.
void ReadPin(int descriptor, Secret* pin);

}  // namespace kelvrin::modulecheck
