// A certificate that a token of ours publishes, and what its key can do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "encoding/bytes.h"

namespace kelvrin::app {

using encoding::Bytes;

// Seconds since 1970-01-01 00:00 UTC.
using Time = int64_t;

enum class KeyType { kRsa, kEllipticCurve, kOther };

struct Certificate {
  std::string token_id;  // "<class ID>:<instance ID>"
  std::string name;      // the subject's summary, UTF-8
  std::string issuer;    // the issuer's common name or organisation, UTF-8
  Time not_before = 0;
  Time not_after = 0;  // 0 when it could not be read
  Bytes serial_number;
  Bytes der;
  Bytes fingerprint;  // SHA-256 of `der`

  KeyType key_type = KeyType::kOther;
  size_t key_bits = 0;
  Bytes public_key;  // PKCS#1 RSAPublicKey, or 04 X Y; empty for other kinds
  Bytes key_hash;    // SHA-1 of the public key, by which the keychain finds the private one

  bool has_key = false;   // the token publishes the private key
  std::string key_label;  // the private key's label in the keychain
  bool can_sign = false;
  bool can_decrypt = false;

  bool operator==(const Certificate&) const = default;
};

// Whether two are the same certificate of the same token, whatever else was read of them.
inline bool IsSame(const Certificate& a, const Certificate& b) {
  return a.token_id == b.token_id && a.fingerprint == b.fingerprint;
}

enum class Validity { kUnknown, kNotYet, kValid, kExpiresSoon, kExpired };

// Days before the end at which a certificate begins to expire soon.
inline constexpr int kSoon = 30;

Validity ValidityAt(const Certificate& certificate, Time now);

// Whether it has a key and is not known to be out of date.
bool IsUsable(const Certificate& certificate, Time now);

// Whole days from now to the end; 0 on the last day.
int DaysLeft(const Certificate& certificate, Time now);

}  // namespace kelvrin::app
