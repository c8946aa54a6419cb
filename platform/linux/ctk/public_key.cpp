#include "platform/linux/ctk/public_key.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace public_key {
namespace {

using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using KeyPointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using DigestPointer = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;
using ContextPointer = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

KeyPointer KeyOf(const Bytes& info) {
  const unsigned char* bytes = info.data();
  return {d2i_PUBKEY(nullptr, &bytes, static_cast<long>(info.size())), EVP_PKEY_free};
}

// Whether the context's padding could be set to PSS over SHA-256.
bool SetPss(EVP_PKEY_CTX* context) {
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) == 1;
}

// Whether the context's padding could be set.
bool SetPadding(EVP_PKEY_CTX* context, Padding padding) {
  if (padding == Padding::kPkcs1) {
    return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1;
  }
  return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256()) == 1 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(context, EVP_sha256()) == 1;
}

}  // namespace

Bytes InfoOf(const uint8_t* certificate, size_t size) {
  const X509Pointer x509(d2i_X509(nullptr, &certificate, static_cast<long>(size)), X509_free);
  const KeyPointer key(X509_get_pubkey(x509.get()), EVP_PKEY_free);
  ERR_clear_error();
  const int kind = key == nullptr ? EVP_PKEY_NONE : EVP_PKEY_get_base_id(key.get());
  if (kind != EVP_PKEY_RSA && kind != EVP_PKEY_EC) return {};
  Bytes info(static_cast<size_t>(i2d_PUBKEY(key.get(), nullptr)));
  unsigned char* end = info.data();
  i2d_PUBKEY(key.get(), &end);
  return info;
}

bool Verifies(const Bytes& info, Scheme scheme, const Bytes& message, const Bytes& signature) {
  const KeyPointer key = KeyOf(info);
  const int kind = scheme == Scheme::kEcdsa ? EVP_PKEY_EC : EVP_PKEY_RSA;
  if (EVP_PKEY_get_base_id(key.get()) != kind) return false;
  const DigestPointer digest(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  EVP_PKEY_CTX* context = nullptr;  // of the digest's
  const bool valid =
      EVP_DigestVerifyInit(digest.get(), &context, EVP_sha256(), nullptr, key.get()) == 1 &&
      (scheme != Scheme::kRsaPss || SetPss(context)) &&
      EVP_DigestVerify(digest.get(), signature.data(), signature.size(), message.data(),
                       message.size()) == 1;
  ERR_clear_error();
  return valid;
}

std::optional<Bytes> Encrypt(const Bytes& info, Padding padding, const Bytes& plaintext) {
  const KeyPointer key = KeyOf(info);
  if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA) return std::nullopt;
  const ContextPointer context(EVP_PKEY_CTX_new(key.get(), nullptr), EVP_PKEY_CTX_free);
  Bytes ciphertext(static_cast<size_t>(EVP_PKEY_get_size(key.get())));
  size_t size = ciphertext.size();
  const bool done = EVP_PKEY_encrypt_init(context.get()) == 1 &&
                    SetPadding(context.get(), padding) &&
                    EVP_PKEY_encrypt(context.get(), ciphertext.data(), &size, plaintext.data(),
                                     plaintext.size()) == 1;
  ERR_clear_error();
  return done ? std::optional(ciphertext) : std::nullopt;
}

}  // namespace public_key
