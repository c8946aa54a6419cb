#include "adapter/operations/testing/heap_watch.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

constinit thread_local std::span<const CK_BYTE> watched;
constinit thread_local std::size_t freed = 0;

void* Allocate(std::size_t size) { return std::malloc(size != 0 ? size : 1); }

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }

void operator delete(void* memory) noexcept {
  if (memory != nullptr && !watched.empty()) {
    const auto* const begin = static_cast<const CK_BYTE*>(memory);
    const auto* const end = begin + malloc_usable_size(memory);
    if (std::search(begin, end, watched.begin(), watched.end()) != end) ++freed;
  }
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace kelvrin::adapter {

HeapWatch::HeapWatch(std::span<const CK_BYTE> secret) {
  watched = secret;
  freed = 0;
}

HeapWatch::~HeapWatch() { watched = {}; }

std::size_t HeapWatch::Freed() { return freed; }

}  // namespace kelvrin::adapter
