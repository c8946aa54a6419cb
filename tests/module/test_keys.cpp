#include "tests/module/test_keys.h"

#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

namespace kelvrin {
namespace {

using Bytes = std::vector<unsigned char>;
template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;
using Context = Owned<EVP_PKEY_CTX>;

constexpr int kCoordinate = 32;
constexpr std::size_t kResultRoom = 512;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string("OpenSSL refuses: ") + what);
}

TestKey CachedKey(std::map<int, TestKey>& cache, int n, EVP_PKEY* (*make)()) {
  TestKey& key = cache[n];
  if (key == nullptr) key.reset(make(), EVP_PKEY_free);
  Require(key != nullptr, "a key");
  return key;
}

EVP_PKEY* ReadKey(const char* path) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "r"), fclose);
  Require(file != nullptr, path);
  return PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr);
}

Bytes Take(unsigned char* bytes, int size) {
  Require(size > 0, "an encoding");
  Bytes taken(bytes, bytes + size);
  OPENSSL_free(bytes);
  return taken;
}

Context ContextOf(EVP_PKEY* key) {
  Context context(EVP_PKEY_CTX_new(key, nullptr), EVP_PKEY_CTX_free);
  Require(context != nullptr, "a context");
  return context;
}

// Calls function(output, &size) and keeps what it wrote, if it answers 1.
template <typename Function>
std::optional<Bytes> Collect(const Function& function) {
  Bytes output(kResultRoom);
  std::size_t size = output.size();
  if (function(output.data(), &size) != 1) return std::nullopt;
  output.resize(size);
  return output;
}

}  // namespace

TestKey TestRsaKey(int n) {
  static std::map<int, TestKey> keys;
  return CachedKey(keys, n, [] {
    const char* const path = getenv("KELVRIN_RSA_KEY");
    return path == nullptr ? EVP_RSA_gen(2048) : ReadKey(path);
  });
}

TestKey TestEcKey(int n) {
  static std::map<int, TestKey> keys;
  return CachedKey(keys, n, [] { return EVP_EC_gen("P-256"); });
}

Bytes NumberOfKey(EVP_PKEY* key, const char* name) {
  BIGNUM* read = nullptr;
  Require(EVP_PKEY_get_bn_param(key, name, &read) == 1, name);
  const Owned<BIGNUM> number(read, BN_free);
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
  BN_bn2bin(number.get(), bytes.data());
  return bytes;
}

Bytes PointOfKey(EVP_PKEY* key) {
  return *Collect([&](unsigned char* output, std::size_t* size) {
    return EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, output, *size, size);
  });
}

std::optional<Bytes> SignRsa(EVP_PKEY* key, int padding, const Bytes& input) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_sign_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) return std::nullopt;
  return Collect([&](unsigned char* output, std::size_t* size) {
    return EVP_PKEY_sign(context.get(), output, size, input.data(), input.size());
  });
}

std::optional<Bytes> DecryptRsa(EVP_PKEY* key, int padding, const Bytes& input) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_decrypt_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) return std::nullopt;
  return Collect([&](unsigned char* output, std::size_t* size) {
    return EVP_PKEY_decrypt(context.get(), output, size, input.data(), input.size());
  });
}

std::optional<Bytes> SignEcdsa(EVP_PKEY* key, const Bytes& digest) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_sign_init(context.get()) != 1) return std::nullopt;
  return Collect([&](unsigned char* output, std::size_t* size) {
    return EVP_PKEY_sign(context.get(), output, size, digest.data(), digest.size());
  });
}

Bytes RawEcdsa(const Bytes& der) {
  const unsigned char* next = der.data();
  const Owned<ECDSA_SIG> signature(d2i_ECDSA_SIG(nullptr, &next, static_cast<long>(der.size())),
                                   ECDSA_SIG_free);
  Require(signature != nullptr, "an ECDSA signature");
  Bytes raw(std::size_t{2} * kCoordinate);
  BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), raw.data(), kCoordinate);
  BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), raw.data() + kCoordinate, kCoordinate);
  return raw;
}

Bytes DerEcdsa(const Bytes& raw) {
  const int half = static_cast<int>(raw.size() / 2);
  const Owned<ECDSA_SIG> signature(ECDSA_SIG_new(), ECDSA_SIG_free);
  ECDSA_SIG_set0(signature.get(), BN_bin2bn(raw.data(), half, nullptr),
                 BN_bin2bn(raw.data() + half, half, nullptr));
  unsigned char* der = nullptr;
  const int size = i2d_ECDSA_SIG(signature.get(), &der);
  return Take(der, size);
}

std::optional<Bytes> DeriveSecret(EVP_PKEY* key, const Bytes& point) {
  const Owned<EVP_PKEY> peer(EVP_PKEY_new(), EVP_PKEY_free);
  if (EVP_PKEY_copy_parameters(peer.get(), key) != 1) return std::nullopt;
  if (EVP_PKEY_set1_encoded_public_key(peer.get(), point.data(), point.size()) != 1) {
    return std::nullopt;
  }
  const Context context = ContextOf(key);
  if (EVP_PKEY_derive_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_derive_set_peer(context.get(), peer.get()) != 1) return std::nullopt;
  return Collect([&](unsigned char* output, std::size_t* size) {
    return EVP_PKEY_derive(context.get(), output, size);
  });
}

}  // namespace kelvrin
