// Independent checks of what a card did, by OpenSSL.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <vector>

namespace kelvrin::adapter {

using OpensslKey = std::shared_ptr<EVP_PKEY>;

// The public key of a certificate; null when there is none.
OpensslKey PublicKeyOf(const unsigned char* certificate, std::size_t size);

// Whether `signature` is a DER ECDSA signature of `digest`.
bool VerifyEcdsa(EVP_PKEY* key, const std::vector<unsigned char>& digest,
                 const std::vector<unsigned char>& signature);

// What the RSA public key makes of a signature, without looking at padding; nothing when OpenSSL
// refuses it.
std::vector<unsigned char> RawRsaPublic(EVP_PKEY* key, const std::vector<unsigned char>& signature);

// PKCS#1 v1.5 encryption.
std::vector<unsigned char> EncryptPkcs1(EVP_PKEY* key, const std::vector<unsigned char>& text);

}  // namespace kelvrin::adapter
