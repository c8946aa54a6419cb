// PKCS#1 v1.5 blocks, for modules that have no raw RSA.
#pragma once

#include <cstddef>
#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

// The message in a block that is to be signed by raw RSA with a modulus of `modulus_size` bytes:
// 00 01, at least eight FF, 00, message. The block may lack leading zeros. Nothing when it is
// another one's, a PSS block for instance.
std::optional<Bytes> UnpadSignatureBlock(ByteView block, std::size_t modulus_size);

// The block that a raw decryption would have given for a message that was encrypted by PKCS#1 v1.5:
// 00 02, at least eight bytes that are not zero, 00, message. Which bytes they were is lost with
// the padding. Empty when the message is too long.
Bytes PadDecryptedMessage(ByteView message, std::size_t modulus_size);

}  // namespace kelvrin::encoding
