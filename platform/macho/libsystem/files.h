// Files: flags and structures that macOS has otherwise.
#pragma once
#include <cstdint>

namespace macho::libsystem {

// open's flags as Linux has them.
int LinuxOpenFlags(int macos_flags);

// open and fcntl by macOS's numbers, with the argument that may follow.
int OpenFile(const char* path, int flags, unsigned mode);
int Fcntl(int file, int command, uint64_t argument);

}  // namespace macho::libsystem
