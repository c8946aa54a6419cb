#include "platform/macho/frame_description.h"

#include <llvm/BinaryFormat/Dwarf.h>

namespace macho {

using namespace llvm::dwarf;  // NOLINT(google-build-using-namespace): the names of operations

void FrameWriter::PutUleb(uint64_t value) {
  for (; value > 0x7f; value >>= 7) Put(static_cast<uint8_t>((value & 0x7f) | 0x80));
  Put(static_cast<uint8_t>(value));
}

void FrameWriter::CallerFrame(unsigned reg, uint64_t offset) {
  Put<uint8_t>(DW_CFA_def_cfa);
  PutUleb(reg);
  PutUleb(offset);
}

void FrameWriter::Saved(unsigned reg, uint64_t words) {
  if (reg < 64) {
    Put(static_cast<uint8_t>(DW_CFA_offset | reg));
  } else {
    Put<uint8_t>(DW_CFA_offset_extended);
    PutUleb(reg);
  }
  PutUleb(words);
}

size_t FrameWriter::Begin() {
  Put<uint32_t>(0);
  return size();
}

void FrameWriter::End(size_t start) {
  while ((size() - start) % 8 != 4) Put<uint8_t>(DW_CFA_nop);
  const auto length = static_cast<uint32_t>(size() - start);
  memcpy(&bytes_[start - sizeof(length)], &length, sizeof(length));
}

}  // namespace macho
