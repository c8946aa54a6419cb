// Writes DWARF frame descriptions, a section like .eh_frame.
#pragma once
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/macho/compact_unwind.h"

namespace macho {

class FrameWriter {
 public:
  template <typename T>
  void Put(T value) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&value);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof(value));
  }
  void PutUleb(uint64_t value);

  // Where the caller's stack pointer is: a register and what is added to it, bytes.
  void CallerFrame(unsigned reg, uint64_t offset);

  // A register of the caller's lies so many words below its stack pointer.
  void Saved(unsigned reg, uint64_t words);

  // A record: its length stands before it, no-ops fill it up to words.
  size_t Begin();
  void End(size_t start);

  size_t size() const { return bytes_.size(); }
  const uint8_t* data() const { return bytes_.data(); }

 private:
  std::vector<uint8_t> bytes_;
};

// The column of the return address in DWARF's numbering of registers.
unsigned ReturnColumn();

enum class FrameKind { kNone, kDescribed, kDwarf };

// What an encoding says: nothing, a frame that DescribeFrame can write, or that the image has a
// DWARF description of its own.
FrameKind KindOf(uint32_t encoding);

// Writes where a function's frame keeps what. `code` is the function's first byte.
void DescribeFrame(const CompactFrame& frame, const uint8_t* code, FrameWriter* out);

}  // namespace macho
