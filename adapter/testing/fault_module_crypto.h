// What the fault module's keys do, by OpenSSL.
#ifndef KELVRIN_ADAPTER_TESTING_FAULT_MODULE_CRYPTO_H_
#define KELVRIN_ADAPTER_TESTING_FAULT_MODULE_CRYPTO_H_

#include <optional>

#include "adapter/testing/fault_module_token.h"

namespace kelvrin::adapter::fault_module {

// All give nothing when OpenSSL refuses the input.

// RSA with RSA_NO_PADDING or RSA_PKCS1_PADDING.
std::optional<Bytes> SignRsa(EVP_PKEY* key, int padding, const Bytes& input);
std::optional<Bytes> DecryptRsa(EVP_PKEY* key, int padding, const Bytes& input);

// A DER signature of a digest of any size.
std::optional<Bytes> SignEcdsa(EVP_PKEY* key, const Bytes& digest);

// r and s of a P-256 signature, 32 bytes each.
Bytes RawSignature(const Bytes& der);

Bytes Sha1(const Bytes& input);

// The secret shared with the owner of a raw public point.
std::optional<Bytes> DeriveSecret(EVP_PKEY* key, const Bytes& point);

}  // namespace kelvrin::adapter::fault_module

#endif  // KELVRIN_ADAPTER_TESTING_FAULT_MODULE_CRYPTO_H_
