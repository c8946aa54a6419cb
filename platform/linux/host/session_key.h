// What the platform does with a session key once the token has decrypted it.
#pragma once

#include <cstddef>

#include "platform/linux/host/result.h"

namespace host {

// Length of the tag that ends a message sealed by AES-GCM.
inline constexpr size_t kGcmTagSize = 16;

// Opens a ciphertext under a vector of 16 zeros, with its tag at the end. `key`: 16 or 32 bytes.
Result<Bytes> OpenAesGcm(const Bytes& key, const Bytes& authenticated, const Bytes& sealed);

}  // namespace host
