// LLVM's C++ library, the same that macOS has.
#pragma once

namespace macho {

// Its handle, and with it that of its runtime and unwinder. It keeps to itself: the program's own
// C++ library has functions of the same names.
void* LibCxx();

// GCC's unwinder, which the program's own C++ library throws through.
void* LibGcc();

}  // namespace macho
