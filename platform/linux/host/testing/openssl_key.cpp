#include "platform/linux/host/testing/openssl_key.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace host::testing {
namespace {

void require(bool condition) {
  if (!condition) throw std::runtime_error("OpenSSL failed");
}

using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

Context context(EVP_PKEY* key) {
  return {EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr), EVP_PKEY_CTX_free};
}

Bytes encrypt(EVP_PKEY_CTX* context, const Bytes& message) {
  size_t size = 0;
  require(EVP_PKEY_encrypt(context, nullptr, &size, message.data(), message.size()) == 1);
  Bytes result(size);
  require(EVP_PKEY_encrypt(context, result.data(), &size, message.data(), message.size()) == 1);
  result.resize(size);
  return result;
}

}  // namespace

OpensslKey OpensslKey::rsa(unsigned bits) {
  EVP_PKEY* key = EVP_RSA_gen(bits);
  require(key != nullptr);
  return OpensslKey(key);
}

OpensslKey OpensslKey::elliptic_curve(const char* name) {
  EVP_PKEY* key = EVP_EC_gen(name);
  require(key != nullptr);
  return OpensslKey(key);
}

OpensslKey OpensslKey::of_certificate(const Bytes& der) {
  const unsigned char* position = der.data();
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      d2i_X509(nullptr, &position, static_cast<long>(der.size())), X509_free);
  require(certificate != nullptr);
  EVP_PKEY* key = X509_get_pubkey(certificate.get());
  require(key != nullptr);
  return OpensslKey(key);
}

KeyFacts OpensslKey::facts() const {
  unsigned char* der = nullptr;
  const int size = i2d_PublicKey(key_.get(), &der);  // PKCS#1, or the point
  require(size > 0);
  KeyFacts facts = {static_cast<size_t>(EVP_PKEY_get_bits(key_.get())), Bytes(der, der + size)};
  OPENSSL_free(der);
  return facts;
}

Bytes OpensslKey::raw(const Bytes& block) const {
  const Context c = context(key_.get());
  require(EVP_PKEY_decrypt_init(c.get()) == 1);
  require(EVP_PKEY_CTX_set_rsa_padding(c.get(), RSA_NO_PADDING) == 1);
  Bytes result(block.size());
  size_t size = result.size();
  require(EVP_PKEY_decrypt(c.get(), result.data(), &size, block.data(), block.size()) == 1);
  result.resize(size);
  return result;
}

Bytes OpensslKey::sign_digest(const Bytes& digest) const {
  const Context c = context(key_.get());
  require(EVP_PKEY_sign_init(c.get()) == 1);
  size_t size = 0;
  require(EVP_PKEY_sign(c.get(), nullptr, &size, digest.data(), digest.size()) == 1);
  Bytes result(size);
  require(EVP_PKEY_sign(c.get(), result.data(), &size, digest.data(), digest.size()) == 1);
  result.resize(size);
  return result;
}

Bytes OpensslKey::agree(const Bytes& point) const {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> peer(EVP_PKEY_new(), EVP_PKEY_free);
  require(EVP_PKEY_copy_parameters(peer.get(), key_.get()) == 1);
  require(EVP_PKEY_set1_encoded_public_key(peer.get(), point.data(), point.size()) == 1);
  const Context c = context(key_.get());
  require(EVP_PKEY_derive_init(c.get()) == 1);
  require(EVP_PKEY_derive_set_peer(c.get(), peer.get()) == 1);
  size_t size = 0;
  require(EVP_PKEY_derive(c.get(), nullptr, &size) == 1);
  Bytes secret(size);
  require(EVP_PKEY_derive(c.get(), secret.data(), &size) == 1);
  secret.resize(size);
  return secret;
}

bool OpensslKey::verifies(Hash hash, const Bytes& message, const Bytes& signature, bool pss) const {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> c(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  EVP_PKEY_CTX* parameters = nullptr;
  require(EVP_DigestVerifyInit(c.get(), &parameters, openssl_digest(hash), nullptr, key_.get()) ==
          1);
  if (pss) {
    require(EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1);
    require(EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST) == 1);
    require(EVP_PKEY_CTX_set_rsa_mgf1_md(parameters, openssl_digest(hash)) == 1);
  }
  return EVP_DigestVerify(c.get(), signature.data(), signature.size(), message.data(),
                          message.size()) == 1;
}

bool OpensslKey::verifies_digest(const Bytes& digest, const Bytes& signature) const {
  const Context c = context(key_.get());
  require(EVP_PKEY_verify_init(c.get()) == 1);
  return EVP_PKEY_verify(c.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

Bytes OpensslKey::encrypt_pkcs1(const Bytes& message) const {
  const Context c = context(key_.get());
  require(EVP_PKEY_encrypt_init(c.get()) == 1);
  return encrypt(c.get(), message);
}

Bytes OpensslKey::encrypt_oaep(Hash hash, const Bytes& message) const {
  const Context c = context(key_.get());
  require(EVP_PKEY_encrypt_init(c.get()) == 1);
  require(EVP_PKEY_CTX_set_rsa_padding(c.get(), RSA_PKCS1_OAEP_PADDING) == 1);
  require(EVP_PKEY_CTX_set_rsa_oaep_md(c.get(), openssl_digest(hash)) == 1);
  require(EVP_PKEY_CTX_set_rsa_mgf1_md(c.get(), openssl_digest(hash)) == 1);
  return encrypt(c.get(), message);
}

Bytes seal_aes_gcm(const Bytes& key, const Bytes& iv, const Bytes& authenticated,
                   const Bytes& message) {
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> c(EVP_CIPHER_CTX_new(),
                                                                          EVP_CIPHER_CTX_free);
  const EVP_CIPHER* cipher = key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
  Bytes sealed(message.size());
  Bytes tag(16);
  int written = 0;
  require(EVP_EncryptInit_ex(c.get(), cipher, nullptr, nullptr, nullptr) == 1);
  require(EVP_CIPHER_CTX_ctrl(c.get(), EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(iv.size()),
                              nullptr) == 1);
  require(EVP_EncryptInit_ex(c.get(), nullptr, nullptr, key.data(), iv.data()) == 1);
  require(EVP_EncryptUpdate(c.get(), nullptr, &written, authenticated.data(),
                            static_cast<int>(authenticated.size())) == 1);
  require(EVP_EncryptUpdate(c.get(), sealed.data(), &written, message.data(),
                            static_cast<int>(message.size())) == 1);
  require(EVP_EncryptFinal_ex(c.get(), sealed.data() + sealed.size(), &written) == 1);
  require(EVP_CIPHER_CTX_ctrl(c.get(), EVP_CTRL_AEAD_GET_TAG, 16, tag.data()) == 1);
  sealed.insert(sealed.end(), tag.begin(), tag.end());
  return sealed;
}

Bytes bytes(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace host::testing
