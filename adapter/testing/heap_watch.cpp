#include "adapter/testing/heap_watch.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>

namespace {

// Stands in front of every block.
struct alignas(std::max_align_t) Header {
  Header* previous;
  Header* next;
  std::size_t size;
};

constinit std::mutex mutex;  // guards the rest
constinit Header first = {nullptr, nullptr, 0};
constinit std::span<const CK_BYTE> watched;
constinit std::size_t freed = 0;

bool HoldsSecret(Header* block) {
  const std::span<const CK_BYTE> bytes(reinterpret_cast<const CK_BYTE*>(block + 1), block->size);
  return !watched.empty() &&
         std::search(bytes.begin(), bytes.end(), watched.begin(), watched.end()) != bytes.end();
}

}  // namespace

void* operator new(std::size_t size) {
  auto* const block = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  if (block == nullptr) throw std::bad_alloc();
  const std::lock_guard lock(mutex);
  *block = {&first, first.next, size};
  if (first.next != nullptr) first.next->previous = block;
  first.next = block;
  return block + 1;
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  Header* const block = static_cast<Header*>(memory) - 1;
  {
    const std::lock_guard lock(mutex);
    if (HoldsSecret(block)) ++freed;
    block->previous->next = block->next;
    if (block->next != nullptr) block->next->previous = block->previous;
  }
  std::free(block);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace kelvrin::adapter {

HeapWatch::HeapWatch(std::span<const CK_BYTE> secret) {
  const std::lock_guard lock(mutex);
  watched = secret;
  freed = 0;
}

HeapWatch::~HeapWatch() {
  const std::lock_guard lock(mutex);
  watched = {};
}

std::size_t HeapWatch::Freed() {
  const std::lock_guard lock(mutex);
  return freed;
}

std::size_t HeapWatch::Held() {
  const std::lock_guard lock(mutex);
  std::size_t held = 0;
  for (Header* block = first.next; block != nullptr; block = block->next) {
    if (HoldsSecret(block)) ++held;
  }
  return held;
}

}  // namespace kelvrin::adapter
