// Removing secrets from memory.
#ifndef KELVRIN_ADAPTER_WIPE_H_
#define KELVRIN_ADAPTER_WIPE_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <cstring>
#include <span>

namespace kelvrin::adapter {

// Overwrites the bytes with zeros, which no optimiser may leave out: it cannot know what is called.
inline void Wipe(std::span<CK_BYTE> bytes) {
  static void* (*const volatile overwrite)(void*, int, std::size_t) = std::memset;
  if (!bytes.empty()) overwrite(bytes.data(), 0, bytes.size());
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_WIPE_H_
