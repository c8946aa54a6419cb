// The binaries of the build under test. Each throws "run ./dev macos first" when its file is
// missing.
#pragma once

#include "tests/macos/expected_binaries.h"

namespace kelvrin::macos {

inline Binary Extension() { return ExpectedBinary(KELVRIN_MACOS_BUILD, "extension"); }
inline Binary Application() { return ExpectedBinary(KELVRIN_MACOS_BUILD, "application"); }
inline Binary Adapter() { return ExpectedBinary(KELVRIN_MACOS_BUILD, "adapter"); }
inline Binary Modulecheck() { return ExpectedBinary(KELVRIN_MACOS_BUILD, "modulecheck"); }

}  // namespace kelvrin::macos
