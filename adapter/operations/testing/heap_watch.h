// Looking for a secret in heap memory that is given back.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>

namespace kelvrin::adapter {

// Who links heap_watch.cpp gets an operator delete that looks into each block before it goes. One
// watch at a time, on one thread.
class HeapWatch {
 public:
  // Watches for `secret`, which lies outside the heap and outlives the object.
  explicit HeapWatch(std::span<const CK_BYTE> secret);
  ~HeapWatch();
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // How many blocks held the secret when they were given back since the watch began.
  static std::size_t Freed();
};

}  // namespace kelvrin::adapter
