// A PIN that does not stay in memory.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

namespace kelvrin::modulecheck {

// Bytes that are overwritten when the object goes. They never move, so that no copy stays behind.
class Secret {
 public:
  static constexpr std::size_t kRoom = 1024;

  Secret() = default;
  ~Secret() { Wipe(); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  std::span<char> room() { return bytes_; }
  // At most kRoom.
  void Resize(std::size_t size) { size_ = size; }

  std::span<char> bytes() { return {bytes_.data(), size_}; }
  std::span<const char> bytes() const { return {bytes_.data(), size_}; }

  void Wipe() {
    // No optimiser may leave it out: it cannot know what is called.
    static void* (*const volatile overwrite)(void*, int, std::size_t) = std::memset;
    overwrite(bytes_.data(), 0, bytes_.size());
    size_ = 0;
  }

 private:
  std::array<char, kRoom> bytes_ = {};
  std::size_t size_ = 0;
};

}  // namespace kelvrin::modulecheck
