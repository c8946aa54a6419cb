// OpenSSL's word on what the card did.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace endtoend {

using Bytes = std::vector<std::uint8_t>;

Bytes ReadFile(const std::filesystem::path& path);

// SHA-256 of a text.
Bytes Sha256(const std::string& text);

// The block that RSA PKCS#1 v1.5 signs for a SHA-256 digest: 00 01 FF... 00 DigestInfo.
//   size  of the modulus in bytes.
Bytes Pkcs1Block(const Bytes& digest, std::size_t size);

// Whether the signature of a SHA-256 digest verifies, RSA as PKCS#1 v1.5 and ECDSA as DER.
//   public_key  PEM file.
bool Verifies(const std::filesystem::path& public_key, const Bytes& digest, const Bytes& signature);

// Encrypts with RSA PKCS#1 v1.5.
Bytes EncryptPkcs1(const std::filesystem::path& public_key, const Bytes& plaintext);

// One side of an ECDH on P-256, with a key made for it.
class KeyAgreement {
 public:
  KeyAgreement();
  ~KeyAgreement();
  KeyAgreement(const KeyAgreement&) = delete;
  KeyAgreement& operator=(const KeyAgreement&) = delete;

  // 04 || X || Y.
  Bytes PublicPoint() const;
  // The secret shared with the other side's public key (PEM file).
  Bytes Secret(const std::filesystem::path& other) const;

 private:
  void* key_;
};

}  // namespace endtoend
