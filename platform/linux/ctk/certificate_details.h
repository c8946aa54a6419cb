// What keychain items and applications take from a certificate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace certificate {

using Bytes = std::vector<uint8_t>;

// Whether the bytes are one X.509 certificate in DER, and nothing besides.
bool IsCertificate(const uint8_t* der, size_t size);

// The subject's common name; without one, its organisational unit, organisation or mail address.
// UTF-8; nothing when the subject has none of them.
std::optional<std::string> SubjectSummary(const uint8_t* der, size_t size);

enum class KeyType { kRsa, kEllipticCurve };

struct PublicKey {
  KeyType type;
  int bits;    // of the modulus or the curve's order
  Bytes data;  // PKCS#1 RSAPublicKey, or the uncompressed point 04 X Y
  Bytes hash;  // SHA-1 of `data`
};

// Nothing when the key is neither RSA nor on an elliptic curve, or cannot be read.
std::optional<PublicKey> PublicKeyOf(const uint8_t* der, size_t size);

// The serial number as the certificate encodes it, its sign bit included.
Bytes SerialNumber(const uint8_t* der, size_t size);

struct Values {
  double not_before, not_after;  // seconds since the beginning of 2001, in UTC
  std::vector<std::pair<std::string, std::string>> issuer;  // OID and text of each part, in order
};

// Parts without text are left out. Nothing when a date cannot be read.
std::optional<Values> ValuesOf(const uint8_t* der, size_t size);

}  // namespace certificate
