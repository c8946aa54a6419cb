// Independent checks of what a card did, by OpenSSL.
#ifndef KELVRIN_ADAPTER_TESTING_OPENSSL_CHECK_H_
#define KELVRIN_ADAPTER_TESTING_OPENSSL_CHECK_H_

#include <openssl/evp.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace kelvrin::adapter {

using OpensslKey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// The public key in a PEM file; null when there is none.
OpensslKey ReadPublicKey(const std::filesystem::path& pem);

// Whether `signature` is a DER ECDSA signature of `digest`.
bool VerifyEcdsa(EVP_PKEY* key, const std::vector<unsigned char>& digest,
                 const std::vector<unsigned char>& signature);

// What the RSA public key makes of a signature, without looking at padding.
std::vector<unsigned char> RawRsaPublic(EVP_PKEY* key, const std::vector<unsigned char>& signature);

// PKCS#1 v1.5 encryption.
std::vector<unsigned char> EncryptPkcs1(EVP_PKEY* key, const std::vector<unsigned char>& text);

// A new P-256 key of OpenSSL's, its public point (04 X Y), and the secret it shares with `peer`.
OpensslKey MakeP256Key();
std::vector<unsigned char> PublicPointOf(EVP_PKEY* key);
std::vector<unsigned char> SharedSecret(EVP_PKEY* own, EVP_PKEY* peer);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_OPENSSL_CHECK_H_
