// What the caller holds the adapter to.
#ifndef KELVRIN_FUZZ_EXPECTATIONS_H_
#define KELVRIN_FUZZ_EXPECTATIONS_H_

#include <p11-kit/pkcs11.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz/script.h"

namespace kelvrin::fuzz {

inline constexpr CK_BYTE kUntouched = 0xee;
inline constexpr CK_ULONG kMostRoom = 600;

inline void Expect(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "the adapter broke its word: %s\n", what);
  std::abort();
}

// A null pointer now and then.
inline CK_BYTE* Pointer(Script& script, Bytes& bytes) {
  return script.Byte() < 0x10 ? nullptr : bytes.data();
}

}  // namespace kelvrin::fuzz

#endif  // KELVRIN_FUZZ_EXPECTATIONS_H_
