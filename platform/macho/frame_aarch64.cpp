// Compact unwind information of arm64.
#include "platform/macho/frame_description.h"

namespace macho {
namespace {

constexpr uint32_t kModeMask = 0x0f000000;
constexpr uint32_t kDwarf = 0x03000000;
constexpr uint32_t kWithFrame = 0x04000000;  // x29 leads to the frame
// DWARF's numbers.
constexpr unsigned kX19 = 19, kX29 = 29, kReturnAddress = 30, kStackPointer = 31, kD8 = 72;

// The pairs of registers that a function may save: x19 and x20 to x27 and x28, then d8 and d9 to
// d14 and d15.
constexpr unsigned kGeneralPairs = 5, kPairs = 9;

// The bit that says that a pair is saved: those of the vector registers leave out bits 5 to 7.
uint32_t BitOf(unsigned pair) {
  return pair < kGeneralPairs ? 1U << pair : 0x100U << (pair - kGeneralPairs);
}

unsigned FirstOf(unsigned pair) {
  return pair < kGeneralPairs ? kX19 + 2 * pair : kD8 + 2 * (pair - kGeneralPairs);
}

}  // namespace

unsigned ReturnColumn() { return kReturnAddress; }

FrameKind KindOf(uint32_t encoding) {
  const uint32_t mode = encoding & kModeMask;
  if (mode == 0) return FrameKind::kNone;
  return mode == kDwarf ? FrameKind::kDwarf : FrameKind::kDescribed;
}

void DescribeFrame(const CompactFrame& frame, const uint8_t*, FrameWriter* out) {
  uint64_t words = 1;  // the saved pairs follow one another below the caller's stack pointer
  if ((frame.encoding & kModeMask) == kWithFrame) {
    out->CallerFrame(kX29, 16);
    out->Saved(kReturnAddress, words++);
    out->Saved(kX29, words++);
  } else {
    out->CallerFrame(kStackPointer, uint64_t{16} * ((frame.encoding >> 12) & 0xfff));
  }
  for (unsigned pair = 0; pair < kPairs; ++pair) {
    if ((frame.encoding & BitOf(pair)) == 0) continue;
    out->Saved(FirstOf(pair), words++);
    out->Saved(FirstOf(pair) + 1, words++);
  }
}

}  // namespace macho
