// Keeping a PIN out of files that a crash would leave.
#pragma once

namespace kelvrin::modulecheck {

// Keeps this process and its children from leaving their memory in a core file when they crash.
void ForbidCoreFiles();

// Keeps this process from being dumped at all, where the system has that: a program that takes core
// dumps through a pipe need not heed the limit. Such a process cannot be traced either.
void ForbidDumps();

}  // namespace kelvrin::modulecheck
