// What Security's keys are here: a public key in its encoding, and OpenSSL's word on a signature.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace signature {

using Bytes = std::vector<uint8_t>;

// Returns the SubjectPublicKeyInfo of a certificate in DER; empty when its key is neither RSA nor
// on an elliptic curve.
Bytes PublicKeyInfo(const uint8_t* certificate, size_t size);

// How a message's SHA-256 digest was signed.
enum class Scheme { kRsaPkcs1, kEcdsa };

// Whether the signature of the message verifies. A key of the scheme's other kind verifies nothing.
bool Verifies(const Bytes& public_key_info, Scheme scheme, const Bytes& message,
              const Bytes& signature);

}  // namespace signature
