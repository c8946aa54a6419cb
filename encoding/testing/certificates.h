// X.509 certificates for tests, made by OpenSSL.
#pragma once

#include <openssl/evp.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

// By OpenSSL's short names, in UTF-8: {{"O", "Firm"}, {"CN", "Name"}}.
using NameFields = std::vector<std::pair<std::string, std::string>>;

struct CertificateWish {
  std::string subject = "Subject";  // the common name
  std::string issuer = "Issuer";
  std::string key = "P-256";  // a named curve, "RSA" or "ED25519"
  int version = 3;            // 1 or 3
  // Extensions by OpenSSL's short names, for example {"basicConstraints", "CA:TRUE"}.
  std::vector<std::pair<std::string, std::string>> extensions = {};
  // The whole subject, in place of a common name.
  std::optional<NameFields> subject_fields = {};
};

// The DER of a certificate with a new key.
Bytes MakeCertificate(const CertificateWish& wish);
// The DER of a certificate for this key, which also signs it; `wish.key` counts for nothing.
Bytes MakeCertificateOf(EVP_PKEY* key, const CertificateWish& wish);

}  // namespace kelvrin::encoding
