// Keys for tests: what a token would do with the private one, and what OpenSSL makes of the public
// one.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>

#include "platform/linux/host/digest.h"
#include "platform/linux/host/resolution.h"

namespace host::testing {

// Throws std::runtime_error where OpenSSL fails.
class OpensslKey {
 public:
  static OpensslKey Rsa(unsigned bits = 2048);
  static OpensslKey EllipticCurve(const char* name = "P-256");
  // The public key alone of a certificate in DER.
  static OpensslKey OfCertificate(const Bytes& der);

  // What a keychain item says of it.
  KeyFacts facts() const;

  // The raw RSA operation with the private key; `block` is as long as the modulus.
  Bytes Raw(const Bytes& block) const;
  // A DER signature of a digest.
  Bytes SignDigest(const Bytes& digest) const;
  // The shared coordinate with a public key 04 X Y.
  Bytes Agree(const Bytes& point) const;

  // Whether the signature is one of the message; `pss`: under PSS with a salt of the digest's
  // length, else PKCS#1 v1.5 for an RSA key.
  bool Verifies(Hash hash, const Bytes& message, const Bytes& signature, bool pss = false) const;
  bool VerifiesDigest(const Bytes& digest, const Bytes& signature) const;
  // PKCS#1 v1.5, and OAEP with the hash in MGF1 too.
  Bytes EncryptPkcs1(const Bytes& message) const;
  Bytes EncryptOaep(Hash hash, const Bytes& message) const;

 private:
  explicit OpensslKey(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}
  std::shared_ptr<EVP_PKEY> key_;
};

// AES-GCM under a vector of 16 zeros, with the tag at the end.
Bytes SealAesGcm(const Bytes& key, const Bytes& authenticated, const Bytes& message);

Bytes BytesOf(const std::string& text);

}  // namespace host::testing
