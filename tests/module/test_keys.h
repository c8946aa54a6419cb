// Keys for tests, and what OpenSSL makes of them.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <vector>

namespace kelvrin {

using TestKey = std::shared_ptr<EVP_PKEY>;

// The n-th key of this process, made once: RSA-2048 and P-256. Throws std::runtime_error.
TestKey TestRsaKey(int n = 0);
TestKey TestEcKey(int n = 0);

// A number of the key by OpenSSL's parameter name, big-endian: "n", "e", "d", "priv".
std::vector<unsigned char> NumberOfKey(EVP_PKEY* key, const char* name);
// The public point of an EC key, uncompressed: 04 X Y.
std::vector<unsigned char> PointOfKey(EVP_PKEY* key);

// What the key makes of the input; nothing where OpenSSL refuses. The padding is OpenSSL's
// RSA_NO_PADDING or RSA_PKCS1_PADDING.
std::optional<std::vector<unsigned char>> SignRsa(EVP_PKEY* key, int padding,
                                                  const std::vector<unsigned char>& input);
std::optional<std::vector<unsigned char>> DecryptRsa(EVP_PKEY* key, int padding,
                                                     const std::vector<unsigned char>& input);
// An ECDSA signature of a digest, in DER; and the same as r and s in 32 bytes each.
std::optional<std::vector<unsigned char>> SignEcdsa(EVP_PKEY* key,
                                                    const std::vector<unsigned char>& digest);
std::vector<unsigned char> RawEcdsa(const std::vector<unsigned char>& der);
std::vector<unsigned char> DerEcdsa(const std::vector<unsigned char>& raw);
// The secret that the key shares with the owner of a public point (04 X Y).
std::optional<std::vector<unsigned char>> DeriveSecret(EVP_PKEY* key,
                                                       const std::vector<unsigned char>& point);

}  // namespace kelvrin
