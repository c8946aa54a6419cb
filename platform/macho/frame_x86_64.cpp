// Compact unwind information of x86_64.
#include <array>

#include "platform/macho/frame_description.h"

namespace macho {
namespace {

constexpr uint32_t kModeMask = 0x0f000000;
constexpr uint32_t kWithFrame = 0x01000000;   // rbp leads to the frame
constexpr uint32_t kSizeInCode = 0x03000000;  // the size stands in an instruction
constexpr uint32_t kDwarf = 0x04000000;
// DWARF's numbers.
constexpr unsigned kRbx = 3, kRbp = 6, kRsp = 7, kR12 = 12, kR13 = 13, kR14 = 14, kR15 = 15;
constexpr unsigned kReturnAddress = 16;

// The registers that a frameless function has pushed, in order of their addresses, out of six; the
// encoding numbers the orders.
std::vector<unsigned> Pushed(uint32_t count, uint32_t order) {
  std::vector<unsigned> left = {kRbx, kR12, kR13, kR14, kR15, kRbp};
  std::vector<unsigned> found;
  for (uint32_t place = 0; place < count; ++place) {
    unsigned orders = 1;  // of the registers behind this one
    for (uint32_t behind = place + 1; behind < count; ++behind) orders *= 6 - behind;
    const auto chosen = left.begin() + order / orders;
    order %= orders;
    found.push_back(*chosen);
    left.erase(chosen);
  }
  return found;
}

void DescribeWithFrame(uint32_t encoding, FrameWriter* out) {
  static constexpr std::array<unsigned, 8> kNumbers = {0, kRbx, kR12, kR13, kR14, kR15, 0, 0};
  out->CallerFrame(kRbp, 16);
  out->Saved(kReturnAddress, 1);
  out->Saved(kRbp, 2);
  const unsigned offset = (encoding >> 16) & 0xff;
  for (unsigned i = 0; i < 5; ++i) {
    const unsigned number = (encoding >> (3 * i)) & 7;
    if (number != 0) out->Saved(kNumbers[number], 2 + offset - i);
  }
}

void DescribeFrameless(uint32_t encoding, const uint8_t* code, FrameWriter* out) {
  const uint32_t field = (encoding >> 16) & 0xff;
  uint64_t size = uint64_t{field} * 8;
  if ((encoding & kModeMask) == kSizeInCode) {
    uint32_t in_code = 0;
    memcpy(&in_code, code + field, sizeof(in_code));
    size = in_code + 8 * ((encoding >> 13) & 7);
  }
  const uint32_t count = (encoding >> 10) & 7;
  out->CallerFrame(kRsp, size);
  out->Saved(kReturnAddress, 1);
  uint64_t words = 1 + count;
  for (const unsigned number : Pushed(count, encoding & 0x3ff)) out->Saved(number, words--);
}

}  // namespace

unsigned ReturnColumn() { return kReturnAddress; }

FrameKind KindOf(uint32_t encoding) {
  const uint32_t mode = encoding & kModeMask;
  if (mode == 0) return FrameKind::kNone;
  return mode == kDwarf ? FrameKind::kDwarf : FrameKind::kDescribed;
}

void DescribeFrame(const CompactFrame& frame, const uint8_t* code, FrameWriter* out) {
  if ((frame.encoding & kModeMask) == kWithFrame) {
    DescribeWithFrame(frame.encoding, out);
  } else {
    DescribeFrameless(frame.encoding, code, out);
  }
}

}  // namespace macho
