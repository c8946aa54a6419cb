#include "adapter/testing/openssl_check.h"

#include <openssl/rsa.h>
#include <openssl/x509.h>

namespace kelvrin::adapter {
namespace {

using Bytes = std::vector<unsigned char>;
using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

Context ContextOf(EVP_PKEY* key) {
  return Context(EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
}

Bytes UseRsaPublic(EVP_PKEY* key, int padding, const Bytes& input) {
  const Context context = ContextOf(key);
  Bytes out(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t size = out.size();
  const bool is_done =
      EVP_PKEY_encrypt_init(context.get()) == 1 &&
      EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1 &&
      EVP_PKEY_encrypt(context.get(), out.data(), &size, input.data(), input.size()) == 1;
  out.resize(is_done ? size : 0);
  return out;
}

}  // namespace

OpensslKey PublicKeyOf(const unsigned char* certificate, std::size_t size) {
  const std::unique_ptr<X509, decltype(&X509_free)> read(
      d2i_X509(nullptr, &certificate, static_cast<long>(size)), &X509_free);
  return {read != nullptr ? X509_get_pubkey(read.get()) : nullptr, &EVP_PKEY_free};
}

bool VerifyEcdsa(EVP_PKEY* key, const Bytes& digest, const Bytes& signature) {
  const Context context = ContextOf(key);
  return EVP_PKEY_verify_init(context.get()) == 1 &&
         EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

Bytes RawRsaPublic(EVP_PKEY* key, const Bytes& signature) {
  return UseRsaPublic(key, RSA_NO_PADDING, signature);
}

Bytes EncryptPkcs1(EVP_PKEY* key, const Bytes& text) {
  return UseRsaPublic(key, RSA_PKCS1_PADDING, text);
}

}  // namespace kelvrin::adapter
