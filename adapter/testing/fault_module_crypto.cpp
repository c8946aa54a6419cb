#include "adapter/testing/fault_module_crypto.h"

#include <openssl/ecdsa.h>
#include <openssl/rsa.h>

#include <memory>
#include <stdexcept>

namespace kelvrin::adapter::fault_module {
namespace {

using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

constexpr std::size_t kResultRoom = 512;
constexpr int kCoordinate = 32;

Context ContextOf(EVP_PKEY* key) {
  Context context(EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
  if (context == nullptr) throw std::runtime_error("EVP_PKEY_CTX_new");
  return context;
}

// Calls function(output, size); its result says whether that went well.
template <typename Function>
std::optional<Bytes> Collect(const Function& function) {
  Bytes output(kResultRoom);
  std::size_t size = output.size();
  if (function(output.data(), &size) != 1) return std::nullopt;
  output.resize(size);
  return output;
}

}  // namespace

std::optional<Bytes> SignRsa(EVP_PKEY* key, int padding, const Bytes& input) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_sign_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) return std::nullopt;
  return Collect([&](CK_BYTE* output, std::size_t* size) {
    return EVP_PKEY_sign(context.get(), output, size, input.data(), input.size());
  });
}

std::optional<Bytes> DecryptRsa(EVP_PKEY* key, int padding, const Bytes& input) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_decrypt_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) return std::nullopt;
  return Collect([&](CK_BYTE* output, std::size_t* size) {
    return EVP_PKEY_decrypt(context.get(), output, size, input.data(), input.size());
  });
}

std::optional<Bytes> SignEcdsa(EVP_PKEY* key, const Bytes& digest) {
  const Context context = ContextOf(key);
  if (EVP_PKEY_sign_init(context.get()) != 1) return std::nullopt;
  return Collect([&](CK_BYTE* output, std::size_t* size) {
    return EVP_PKEY_sign(context.get(), output, size, digest.data(), digest.size());
  });
}

Bytes RawSignature(const Bytes& der) {
  const unsigned char* next = der.data();
  const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> signature(
      d2i_ECDSA_SIG(nullptr, &next, static_cast<long>(der.size())), &ECDSA_SIG_free);
  if (signature == nullptr) throw std::runtime_error("d2i_ECDSA_SIG");
  Bytes raw(std::size_t{2} * kCoordinate);
  BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), raw.data(), kCoordinate);
  BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), raw.data() + kCoordinate, kCoordinate);
  return raw;
}

Bytes Sha1(const Bytes& input) {
  Bytes digest(EVP_MAX_MD_SIZE);
  unsigned size = 0;
  EVP_Digest(input.data(), input.size(), digest.data(), &size, EVP_sha1(), nullptr);
  digest.resize(size);
  return digest;
}

std::optional<Bytes> DeriveSecret(EVP_PKEY* key, const Bytes& point) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> peer(EVP_PKEY_new(), &EVP_PKEY_free);
  if (EVP_PKEY_copy_parameters(peer.get(), key) != 1) return std::nullopt;
  if (EVP_PKEY_set1_encoded_public_key(peer.get(), point.data(), point.size()) != 1) {
    return std::nullopt;
  }
  const Context context = ContextOf(key);
  if (EVP_PKEY_derive_init(context.get()) != 1) return std::nullopt;
  if (EVP_PKEY_derive_set_peer(context.get(), peer.get()) != 1) return std::nullopt;
  return Collect([&](CK_BYTE* output, std::size_t* size) {
    return EVP_PKEY_derive(context.get(), output, size);
  });
}

}  // namespace kelvrin::adapter::fault_module
