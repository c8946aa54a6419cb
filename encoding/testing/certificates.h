// X.509 certificates for tests, made by OpenSSL.
#pragma once

#include <openssl/evp.h>

#include <string>
#include <utility>
#include <vector>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

struct CertificateWish {
  std::string subject = "Subject";
  std::string issuer = "Issuer";
  std::string key = "P-256";  // a named curve, "RSA" or "ED25519"
  int version = 3;            // 1 or 3
  // Extensions by OpenSSL's short names, for example {"basicConstraints", "CA:TRUE"}.
  std::vector<std::pair<std::string, std::string>> extensions = {};
};

// The DER of a certificate with a new key.
Bytes MakeCertificate(const CertificateWish& wish);
// The DER of a certificate for this key, which also signs it; `wish.key` counts for nothing.
Bytes MakeCertificateOf(EVP_PKEY* key, const CertificateWish& wish);

}  // namespace kelvrin::encoding
