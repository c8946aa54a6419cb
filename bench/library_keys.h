// The token's private keys as other programs use them: through GnuTLS, and through OpenSSL's
// PKCS#11 engine. Both reach the module itself, without the adapter.
#ifndef KELVRIN_BENCH_LIBRARY_KEYS_H_
#define KELVRIN_BENCH_LIBRARY_KEYS_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kelvrin::bench {

using Bytes = std::vector<std::uint8_t>;

// A private key on the card.
class LibraryKey {
 public:
  virtual ~LibraryKey() = default;
  // Signs a SHA-256 digest: RSA as PKCS#1 v1.5, ECDSA as DER. Empty on failure.
  virtual Bytes Sign(const Bytes& digest) = 0;
};

// A library that has the module loaded.
class KeyLibrary {
 public:
  virtual ~KeyLibrary() = default;
  // The private key with a CKA_ID of one byte on the token with that label. Throws
  // std::runtime_error. To be destroyed before the library.
  virtual std::unique_ptr<LibraryKey> Key(const std::string& label, std::uint8_t id) = 0;
};

// One of each at a time in a process; the module may be initialised already. They throw
// std::runtime_error when the library or the module is not there.
std::unique_ptr<KeyLibrary> OpenGnutls(const std::filesystem::path& module);
std::unique_ptr<KeyLibrary> OpenOpensslEngine(const std::filesystem::path& module);

// The URI of a private key.
std::string PrivateKeyUri(const std::string& label, std::uint8_t id);

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_LIBRARY_KEYS_H_
