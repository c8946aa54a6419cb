// Error numbers: macOS counts most of them otherwise.
#pragma once

namespace macho::libsystem {

// A number of Linux as macOS has it, and the other way round; one that has no equal stays.
int MacosError(int linux_number);
int LinuxError(int macos_number);

// Puts the image's errno back where Linux's functions look for it, before one that reads it.
void RestoreErrno();

}  // namespace macho::libsystem
