// Files: flags and structures that macOS has otherwise.
#pragma once

namespace macho::libsystem {

// open's flags as Linux has them.
int LinuxOpenFlags(int macos_flags);

}  // namespace macho::libsystem
