#include "platform/linux/host/session_key.h"

#include <openssl/evp.h>

#include <memory>

namespace host {

Result<Bytes> OpenAesGcm(const Bytes& key, const Bytes& authenticated, const Bytes& sealed) {
  const Error failure = ParameterError("the message cannot be opened with the session key");
  if (sealed.size() < kGcmTagSize || (key.size() != 16 && key.size() != 32)) return failure;
  const int size = static_cast<int>(sealed.size() - kGcmTagSize);
  Bytes tag(sealed.end() - kGcmTagSize, sealed.end());
  Bytes message(static_cast<size_t>(size) + 1);  // one more: an empty vector has no address
  const unsigned char iv[16] = {};
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  EVP_CIPHER_CTX* c = context.get();
  const EVP_CIPHER* cipher = key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
  int written = 0;
  const bool opened = EVP_DecryptInit_ex(c, cipher, nullptr, nullptr, nullptr) == 1 &&
                      EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_IVLEN, sizeof(iv), nullptr) == 1 &&
                      EVP_DecryptInit_ex(c, nullptr, nullptr, key.data(), iv) == 1 &&
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
