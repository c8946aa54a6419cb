#include "adapter/testing/openssl_check.h"

#include <openssl/core_names.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <stdexcept>

namespace kelvrin::adapter {
namespace {

using Bytes = std::vector<unsigned char>;
using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

Context ContextOf(EVP_PKEY* key) {
  Context context(EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
  Require(context != nullptr, "EVP_PKEY_CTX_new");
  return context;
}

}  // namespace

OpensslKey ReadPublicKey(const std::filesystem::path& pem) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(pem.c_str(), "r"), &std::fclose);
  Require(file != nullptr, "no public key file");
  return OpensslKey(PEM_read_PUBKEY(file.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
}

bool VerifyEcdsa(EVP_PKEY* key, const Bytes& digest, const Bytes& signature) {
  const Context context = ContextOf(key);
  Require(EVP_PKEY_verify_init(context.get()) == 1, "verify_init");
  return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

Bytes RawRsaPublic(EVP_PKEY* key, const Bytes& signature) {
  const Context context = ContextOf(key);
  Require(EVP_PKEY_encrypt_init(context.get()) == 1, "encrypt_init");
  Require(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) == 1, "padding");
  Bytes out(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t size = out.size();
  Require(
      EVP_PKEY_encrypt(context.get(), out.data(), &size, signature.data(), signature.size()) == 1,
      "encrypt");
  out.resize(size);
  return out;
}

Bytes EncryptPkcs1(EVP_PKEY* key, const Bytes& text) {
  const Context context = ContextOf(key);
  Require(EVP_PKEY_encrypt_init(context.get()) == 1, "encrypt_init");
  Require(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1, "padding");
  Bytes out(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t size = out.size();
  Require(EVP_PKEY_encrypt(context.get(), out.data(), &size, text.data(), text.size()) == 1,
          "encrypt");
  out.resize(size);
  return out;
}

OpensslKey MakeP256Key() {
  OpensslKey key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  Require(key != nullptr, "EVP_EC_gen");
  return key;
}

Bytes PublicPointOf(EVP_PKEY* key) {
  Bytes point(133);
  std::size_t size = 0;
  Require(EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                          &size) == 1,
          "public point");
  point.resize(size);
  return point;
}

Bytes SharedSecret(EVP_PKEY* own, EVP_PKEY* peer) {
  const Context context = ContextOf(own);
  Require(EVP_PKEY_derive_init(context.get()) == 1, "derive_init");
  Require(EVP_PKEY_derive_set_peer(context.get(), peer) == 1, "set_peer");
  Bytes secret(66);
  std::size_t size = secret.size();
  Require(EVP_PKEY_derive(context.get(), secret.data(), &size) == 1, "derive");
  secret.resize(size);
  return secret;
}

}  // namespace kelvrin::adapter
