// The two encodings of an ECDSA signature: X9.62 (DER) and RFC 4754 (r and s side by side).
#pragma once

#include <cstddef>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/result.h"

namespace host {

// Whether the bytes are one DER SEQUENCE of two positive INTEGERs and nothing besides: what macOS
// takes for an ECDSA signature.
bool is_der_ecdsa_signature(const Bytes& signature);

// r and s of a DER signature, each in `field_size` bytes. Fails when it is no such signature or a
// number is longer.
Result<Bytes> der_to_rfc4754(const Bytes& signature, size_t field_size);

}  // namespace host
