#include "adapter/operations/locked_pin.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>

#include "encoding/wipe.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kLongest = 255;
constexpr std::size_t kRoom = 1 + kLongest;

}  // namespace

LockedPin::~LockedPin() {
  Wipe();
  if (page_ == nullptr) return;
  munlock(page_, kRoom);
  munmap(page_, kRoom);
}

bool LockedPin::Map() {
  if (page_ != nullptr) return true;
  void* const page =
      mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return false;
  // A system that allows no locking keeps the PIN all the same: its swap is its owner's.
  static_cast<void>(mlock(page, kRoom));
#ifdef MADV_DONTDUMP
  static_cast<void>(madvise(page, kRoom, MADV_DONTDUMP));
#endif
  page_ = static_cast<CK_BYTE*>(page);
  return true;
}

void LockedPin::Keep(const CK_BYTE* pin, CK_ULONG size) {
  Wipe();
  if (pin == nullptr) {
    is_entered_at_reader_ = true;
    return;
  }
  if (size == 0 || size > kLongest || !Map()) return;
  std::copy_n(pin, size, page_ + 1);
  *page_ = static_cast<CK_BYTE>(size);
}

void LockedPin::Wipe() {
  if (page_ != nullptr) encoding::Wipe(page_, kRoom);
  is_entered_at_reader_ = false;
}

}  // namespace kelvrin::adapter
