// What OpenSSL does with the public key of a certificate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace public_key {

using Bytes = std::vector<uint8_t>;

// Returns the SubjectPublicKeyInfo of a certificate in DER; empty when its key is neither RSA nor
// on an elliptic curve.
Bytes InfoOf(const uint8_t* certificate, size_t size);

// How a message's SHA-256 digest was signed. The salt of PSS is as long as the digest.
enum class Scheme { kRsaPkcs1, kRsaPss, kEcdsa };

// Whether the signature of the message verifies. A key of the scheme's other kind verifies nothing.
bool Verifies(const Bytes& info, Scheme scheme, const Bytes& message, const Bytes& signature);

enum class Padding { kPkcs1, kOaepSha256 };

// Encrypts with an RSA key. Nothing when the key is of another kind or too small for the plaintext.
std::optional<Bytes> Encrypt(const Bytes& info, Padding padding, const Bytes& plaintext);

}  // namespace public_key
