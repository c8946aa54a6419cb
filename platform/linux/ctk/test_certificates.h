// Certificates for tests, made when they are needed.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace test_certificates {

enum class KeyKind { kRsa2048, kP256, kP256Compressed, kP521, kEd25519 };

// Object identifier short names and UTF-8 values, as in {{"CN", "Name"}, {"O", "Firm"}}.
using Subject = std::vector<std::pair<std::string, std::string>>;

struct Certificate {
  std::vector<uint8_t> der;
  std::shared_ptr<EVP_PKEY> key;  // private and public
};

// Makes a key and a self-signed certificate for it. Throws std::runtime_error when OpenSSL fails.
Certificate Make(KeyKind kind, const Subject& subject);

}  // namespace test_certificates
