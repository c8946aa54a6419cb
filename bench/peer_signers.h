// The token's private keys as other programs use them: through GnuTLS, and through OpenSSL's
// PKCS#11 engine. Both reach the module itself, without the adapter.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kelvrin::bench {

using Bytes = std::vector<std::uint8_t>;

// Signs a SHA-256 digest: RSA as PKCS#1 v1.5, ECDSA as DER. Empty on failure.
using Signer = std::function<Bytes(const Bytes& digest)>;

// The private key behind a URI, looked up once; the module may be initialised already. They throw
// std::runtime_error when the library, the module or the key is not there.
Signer GnutlsSigner(const std::string& uri);
Signer EngineSigner(const std::string& uri);

// The URI of a private key with a CKA_ID of one byte.
std::string PrivateKeyUri(const std::string& label, std::uint8_t id);

}  // namespace kelvrin::bench
