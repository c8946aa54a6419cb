#include "platform/linux/host/shared_secret.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <memory>

namespace host {
namespace {

// OpenSSL takes what it only reads through pointers to what is not const.
OSSL_PARAM octets(const char* name, const Bytes& bytes) {
  return OSSL_PARAM_construct_octet_string(name, const_cast<uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

Result<Bytes> derive_x963(Hash hash, const Bytes& secret, const Bytes& shared_info, size_t size) {
  const std::unique_ptr<EVP_KDF, decltype(&EVP_KDF_free)> kdf(
      EVP_KDF_fetch(nullptr, OSSL_KDF_NAME_X963KDF, nullptr), EVP_KDF_free);
  const std::unique_ptr<EVP_KDF_CTX, decltype(&EVP_KDF_CTX_free)> context(
      EVP_KDF_CTX_new(kdf.get()), EVP_KDF_CTX_free);
  const char* name = EVP_MD_get0_name(openssl_digest(hash));
  const OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(name), 0),
      octets(OSSL_KDF_PARAM_SECRET, secret), octets(OSSL_KDF_PARAM_INFO, shared_info),
      OSSL_PARAM_construct_end()};
  Bytes derived(size);
  if (EVP_KDF_derive(context.get(), derived.data(), size, parameters) != 1) {
    return parameter_error("no key of " + std::to_string(size) +
                           " bytes can be derived from the shared secret");
  }
  return derived;
}

Result<Bytes> open_aes_gcm(const Bytes& key, const Bytes& iv, const Bytes& authenticated,
                           const Bytes& sealed) {
  const Error failure = parameter_error("the message cannot be opened with the session key");
  if (sealed.size() < kGcmTagSize || (key.size() != 16 && key.size() != 32)) return failure;
  const int size = static_cast<int>(sealed.size() - kGcmTagSize);
  Bytes tag(sealed.end() - kGcmTagSize, sealed.end());
  Bytes message(static_cast<size_t>(size) + 1);  // one more: an empty vector has no address
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CIPHER_CTX* c = context.get();
  const EVP_CIPHER* cipher = key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
  int written = 0;
  const bool opened =
      EVP_DecryptInit_ex(c, cipher, nullptr, nullptr, nullptr) == 1 &&
      EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(iv.size()), nullptr) == 1 &&
      EVP_DecryptInit_ex(c, nullptr, nullptr, key.data(), iv.data()) == 1 &&
      EVP_DecryptUpdate(c, nullptr, &written, authenticated.data(),
                        static_cast<int>(authenticated.size())) == 1 &&
      EVP_DecryptUpdate(c, message.data(), &written, sealed.data(), size) == 1 &&
      EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_TAG, kGcmTagSize, tag.data()) == 1 &&
      EVP_DecryptFinal_ex(c, message.data() + size, &written) == 1;
  if (!opened) return failure;
  message.pop_back();
  return message;
}

}  // namespace host
