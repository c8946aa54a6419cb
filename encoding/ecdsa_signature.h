// ECDSA signatures: r and s side by side, and the DER SEQUENCE of the two INTEGERs.
#pragma once

#include <cstddef>
#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

// r and s of the same size each, one behind the other, as DER with numbers as short as can be.
// `raw` has an even number of bytes, two at least.
Bytes EcdsaSignatureToDer(ByteView raw);

// Whether the bytes are exactly one DER SEQUENCE of two INTEGERs above zero.
bool IsDerSignature(ByteView der);

// r and s of a DER signature in `size` bytes each, one behind the other; nothing when the bytes are
// no such signature or a number does not fit.
std::optional<Bytes> EcdsaSignatureToRaw(ByteView der, std::size_t size);

}  // namespace kelvrin::encoding
