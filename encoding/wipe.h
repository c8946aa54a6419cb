// Removing secrets from memory.
#pragma once

#include <cstddef>
#include <cstring>

namespace kelvrin::encoding {

// Overwrites the bytes with zeros. No optimiser may leave it out: it cannot know what is called.
inline void Wipe(void* bytes, std::size_t size) {
  static void* (*const volatile overwrite)(void*, int, std::size_t) = std::memset;
  if (size != 0) overwrite(bytes, 0, size);
}

}  // namespace kelvrin::encoding
