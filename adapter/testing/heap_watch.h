// Looking for a secret on the heap: in what is there, and in what is being given back.
#ifndef KELVRIN_ADAPTER_TESTING_HEAP_WATCH_H_
#define KELVRIN_ADAPTER_TESTING_HEAP_WATCH_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>

namespace kelvrin::adapter {

// Who links heap_watch.cpp gets an operator new and an operator delete that know every block of
// theirs, and look into each before it goes. One watch at a time, on one thread.
class HeapWatch {
 public:
  // Watches for `secret`, which lies outside the heap and outlives the object.
  explicit HeapWatch(std::span<const CK_BYTE> secret);
  ~HeapWatch();
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // How many blocks held the secret when they were given back since the watch began.
  static std::size_t Freed();
  // How many blocks hold it now.
  static std::size_t Held();
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_HEAP_WATCH_H_
