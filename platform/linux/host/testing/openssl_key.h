// Keys for tests: what a token would do with the private one, and what OpenSSL makes of the public
// one.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>

#include "platform/linux/host/adaptor.h"
#include "platform/linux/host/bytes.h"
#include "platform/linux/host/digest.h"

namespace host::testing {

// Throws std::runtime_error where OpenSSL fails.
class OpensslKey {
 public:
  static OpensslKey rsa(unsigned bits = 2048);
  static OpensslKey elliptic_curve(const char* name = "P-256");
  // The public key alone of a certificate in DER.
  static OpensslKey of_certificate(const Bytes& der);

  // What a keychain item says of it.
  KeyFacts facts() const;

  // The raw RSA operation with the private key; `block` is as long as the modulus.
  Bytes raw(const Bytes& block) const;
  // A DER signature of a digest.
  Bytes sign_digest(const Bytes& digest) const;
  // The shared coordinate with a public key 04 X Y.
  Bytes agree(const Bytes& point) const;

  // Whether the signature is one of the message; `pss`: under PSS with a salt of the digest's
  // length, else PKCS#1 v1.5 for an RSA key.
  bool verifies(Hash hash, const Bytes& message, const Bytes& signature, bool pss = false) const;
  bool verifies_digest(const Bytes& digest, const Bytes& signature) const;
  // PKCS#1 v1.5, and OAEP with the hash in MGF1 too.
  Bytes encrypt_pkcs1(const Bytes& message) const;
  Bytes encrypt_oaep(Hash hash, const Bytes& message) const;

 private:
  explicit OpensslKey(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {}
  std::shared_ptr<EVP_PKEY> key_;
};

// AES-GCM with the tag at the end.
Bytes seal_aes_gcm(const Bytes& key, const Bytes& iv, const Bytes& authenticated,
                   const Bytes& message);

Bytes bytes(const std::string& text);

}  // namespace host::testing
