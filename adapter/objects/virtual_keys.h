// Public keys that the token does not have, made from its certificates.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <optional>

#include "adapter/inner/object_reading.h"
#include "encoding/certificate.h"

namespace kelvrin::adapter {

// A public key object that only the adapter knows.
struct VirtualKey {
  Bytes certificate;  // the DER that it was made from
  CK_KEY_TYPE type = 0;
  // The attributes that do not depend on the slot, by type; numbers in the platform's form.
  std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
};

// The virtual keys of one token. A key's handle stays the same as long as its certificate does.
class VirtualKeys {
 public:
  // Handles begin here, far from those that modules count up.
  static constexpr CK_OBJECT_HANDLE kFirstHandle = CK_OBJECT_HANDLE{0x4b560000} << 32;

  // The key of the certificate `der` with this CKA_ID and label; nothing when the bytes are no
  // certificate or its key is neither RSA nor on a named curve.
  std::optional<CK_OBJECT_HANDLE> Make(const Bytes& der, const Bytes& id, const Bytes& label);

  // Null when there is no such key.
  const VirtualKey* Find(CK_OBJECT_HANDLE handle) const;

 private:
  std::map<CK_OBJECT_HANDLE, VirtualKey> keys_;
  CK_OBJECT_HANDLE next_ = kFirstHandle;
};

}  // namespace kelvrin::adapter
