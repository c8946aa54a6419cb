// One PIN in memory that is kept from the disk and wiped.
#pragma once

#include <p11-kit/pkcs11.h>

namespace kelvrin::adapter {

// Keeps a PIN of 1 to 255 bytes, or the fact that it is entered at the reader. The memory is a page
// of its own, locked where the system allows that, left out of core dumps, and overwritten before
// it is given back.
class LockedPin {
 public:
  LockedPin() = default;
  ~LockedPin();
  LockedPin(const LockedPin&) = delete;
  LockedPin& operator=(const LockedPin&) = delete;

  // Keeps a copy of the PIN in place of the one before. A null pointer stands for a PIN that is
  // entered at the reader. An empty PIN, or one that is too long, is not kept, nor one that the
  // system has no memory for.
  void Keep(const CK_BYTE* pin, CK_ULONG size);

  // Overwrites the PIN, and keeps none.
  void Wipe();

  bool has_pin() const { return is_entered_at_reader_ || size() != 0; }
  // The bytes, owned by the object; null for a PIN that is entered at the reader, and for none.
  CK_BYTE* data() { return size() != 0 ? page_ + 1 : nullptr; }
  // Bytes of the PIN; 0 for one that is entered at the reader, and for none.
  CK_ULONG size() const { return page_ != nullptr ? *page_ : 0; }

 private:
  bool Map();

  CK_BYTE* page_ = nullptr;  // the PIN's size, then its bytes
  bool is_entered_at_reader_ = false;
};

}  // namespace kelvrin::adapter
