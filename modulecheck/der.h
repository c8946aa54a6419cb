// The little of ASN.1 that shapes are judged by.
#pragma once

#include <optional>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

// Whether the bytes are one DER SEQUENCE and nothing else.
bool IsSequence(std::span<const CK_BYTE> der);

// The two numbers of an ECDSA signature in minimal DER, each in `size` bytes, one behind the other;
// nothing when the bytes are no such signature or a number does not fit.
std::optional<Bytes> RawEcdsaSignature(std::span<const CK_BYTE> der, std::size_t size);

}  // namespace kelvrin::modulecheck
