// A PIN that does not stay in memory.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include "encoding/wipe.h"

namespace kelvrin::encoding {

// At most kRoom bytes, overwritten when the object goes. It is never copied; what it was moved from
// is overwritten.
class Secret {
 public:
  static constexpr std::size_t kRoom = 1024;

  Secret() = default;
  Secret(Secret&& other) noexcept { *this = std::move(other); }
  Secret& operator=(Secret&& other) noexcept {
    if (this != &other) {
      Assign(other.bytes());
      other.Wipe();
    }
    return *this;
  }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { Wipe(); }

  // Takes a copy of the bytes; those beyond kRoom are left out.
  void Assign(std::span<const char> bytes) {
    Wipe();
    size_ = std::min(bytes.size(), kRoom);
    std::copy_n(bytes.begin(), size_, room_.begin());
  }
  // The whole room, to read into; Resize then says how many bytes count, at most kRoom.
  std::span<char> room() { return room_; }
  void Resize(std::size_t size) { size_ = size; }

  std::span<char> bytes() { return {room_.data(), size_}; }
  std::span<const char> bytes() const { return {room_.data(), size_}; }
  bool empty() const { return size_ == 0; }

  void Wipe() {
    encoding::Wipe(room_.data(), room_.size());
    size_ = 0;
  }

 private:
  std::array<char, kRoom> room_ = {};
  std::size_t size_ = 0;
};

}  // namespace kelvrin::encoding
