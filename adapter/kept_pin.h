// One PIN in memory that is kept from the disk and wiped.
#ifndef KELVRIN_ADAPTER_KEPT_PIN_H_
#define KELVRIN_ADAPTER_KEPT_PIN_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>

namespace kelvrin::adapter {

// Keeps a PIN of 1 to 255 bytes, or the fact that it is entered at the reader. The memory is a page
// of its own, locked where the system allows that, and overwritten before it is given back.
class KeptPin {
 public:
  KeptPin() = default;
  ~KeptPin();
  KeptPin(const KeptPin&) = delete;
  KeptPin& operator=(const KeptPin&) = delete;

  // Keeps a copy of the PIN in place of the one before. A null pointer stands for a PIN that is
  // entered at the reader. An empty PIN, or one that is too long, is not kept.
  void Keep(const CK_BYTE* pin, CK_ULONG size);

  void Wipe();

  bool has_pin() const { return has_pin_; }
  // The bytes, owned by the object; null for a PIN that is entered at the reader.
  CK_BYTE* data() { return size_ != 0 ? page_ : nullptr; }
  CK_ULONG size() const { return size_; }

 private:
  bool Map();

  CK_BYTE* page_ = nullptr;
  CK_ULONG size_ = 0;
  bool has_pin_ = false;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_KEPT_PIN_H_
