// What the platform does with an agreed secret, or with a session key, once the token has given it.
#pragma once

#include <cstddef>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/digest.h"
#include "platform/linux/host/result.h"

namespace host {

// The ANSI X9.63 key derivation function: `size` bytes, at least 1.
Result<Bytes> derive_x963(Hash hash, const Bytes& secret, const Bytes& shared_info, size_t size);

// Length of the tag that ends a message sealed by AES-GCM.
inline constexpr size_t kGcmTagSize = 16;

// Opens a ciphertext with its tag at the end. `key`: 16 or 32 bytes; `iv`: 16 bytes.
Result<Bytes> open_aes_gcm(const Bytes& key, const Bytes& iv, const Bytes& authenticated,
                           const Bytes& sealed);

}  // namespace host
