// Signals: some have other numbers on macOS.
#pragma once
#include <csignal>
#include <cstdint>

namespace macho::libsystem {

int LinuxSignal(int macos_number);
int MacosSignal(int linux_number);

// A set of macOS: one bit a signal, from 1 on.
sigset_t LinuxSignals(uint32_t macos_set);

}  // namespace macho::libsystem
