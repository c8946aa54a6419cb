#include "platform/linux/ctk/signature_check.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace signature {
namespace {

using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using KeyPointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using ContextPointer = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

}  // namespace

Bytes PublicKeyInfo(const uint8_t* certificate, size_t size) {
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

bool Verifies(const Bytes& public_key_info, Scheme scheme, const Bytes& message,
              const Bytes& signature) {
  const unsigned char* bytes = public_key_info.data();
  const KeyPointer key(d2i_PUBKEY(nullptr, &bytes, static_cast<long>(public_key_info.size())),
                       EVP_PKEY_free);
  const int kind = scheme == Scheme::kRsaPkcs1 ? EVP_PKEY_RSA : EVP_PKEY_EC;
  if (EVP_PKEY_get_base_id(key.get()) != kind) return false;
  const ContextPointer context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  const bool valid =
      EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
      EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                       message.size()) == 1;
  ERR_clear_error();
  return valid;
}

}  // namespace signature
