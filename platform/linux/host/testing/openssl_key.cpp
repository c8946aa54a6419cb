#include "platform/linux/host/testing/openssl_key.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace host::testing {
namespace {

void Require(bool condition) {
  if (!condition) throw std::runtime_error("OpenSSL failed");
}

using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

Context ContextOf(EVP_PKEY* key) {
  return {EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr), EVP_PKEY_CTX_free};
}

Bytes Encrypt(EVP_PKEY_CTX* context, const Bytes& message) {
  size_t size = 0;
  Require(EVP_PKEY_encrypt(context, nullptr, &size, message.data(), message.size()) == 1);
  Bytes result(size);
  Require(EVP_PKEY_encrypt(context, result.data(), &size, message.data(), message.size()) == 1);
  result.resize(size);
  return result;
}

}  // namespace

OpensslKey OpensslKey::Rsa(unsigned bits) {
  EVP_PKEY* key = EVP_RSA_gen(bits);
  Require(key != nullptr);
  return OpensslKey(key);
}

OpensslKey OpensslKey::EllipticCurve(const char* name) {
  EVP_PKEY* key = EVP_EC_gen(name);
  Require(key != nullptr);
  return OpensslKey(key);
}

OpensslKey OpensslKey::OfCertificate(const Bytes& der) {
  const unsigned char* position = der.data();
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(
      d2i_X509(nullptr, &position, static_cast<long>(der.size())), X509_free);
  Require(certificate != nullptr);
  EVP_PKEY* key = X509_get_pubkey(certificate.get());
  Require(key != nullptr);
  return OpensslKey(key);
}

KeyFacts OpensslKey::facts() const {
  unsigned char* der = nullptr;
  const int size = i2d_PublicKey(key_.get(), &der);  // PKCS#1, or the point
  Require(size > 0);
  KeyFacts facts = {static_cast<size_t>(EVP_PKEY_get_bits(key_.get())), Bytes(der, der + size)};
  OPENSSL_free(der);
  return facts;
}

Bytes OpensslKey::Raw(const Bytes& block) const {
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_decrypt_init(c.get()) == 1);
  Require(EVP_PKEY_CTX_set_rsa_padding(c.get(), RSA_NO_PADDING) == 1);
  Bytes result(block.size());
  size_t size = result.size();
  Require(EVP_PKEY_decrypt(c.get(), result.data(), &size, block.data(), block.size()) == 1);
  result.resize(size);
  return result;
}

Bytes OpensslKey::SignDigest(const Bytes& digest) const {
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_sign_init(c.get()) == 1);
  size_t size = 0;
  Require(EVP_PKEY_sign(c.get(), nullptr, &size, digest.data(), digest.size()) == 1);
  Bytes result(size);
  Require(EVP_PKEY_sign(c.get(), result.data(), &size, digest.data(), digest.size()) == 1);
  result.resize(size);
  return result;
}

Bytes OpensslKey::Agree(const Bytes& point) const {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> peer(EVP_PKEY_new(), EVP_PKEY_free);
  Require(EVP_PKEY_copy_parameters(peer.get(), key_.get()) == 1);
  Require(EVP_PKEY_set1_encoded_public_key(peer.get(), point.data(), point.size()) == 1);
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_derive_init(c.get()) == 1);
  Require(EVP_PKEY_derive_set_peer(c.get(), peer.get()) == 1);
  size_t size = 0;
  Require(EVP_PKEY_derive(c.get(), nullptr, &size) == 1);
  Bytes secret(size);
  Require(EVP_PKEY_derive(c.get(), secret.data(), &size) == 1);
  secret.resize(size);
  return secret;
}

bool OpensslKey::Verifies(Hash hash, const Bytes& message, const Bytes& signature, bool pss) const {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> c(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  EVP_PKEY_CTX* parameters = nullptr;
  Require(EVP_DigestVerifyInit(c.get(), &parameters, OpensslDigest(hash), nullptr, key_.get()) ==
          1);
  if (pss) {
    Require(EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1);
    Require(EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST) == 1);
    Require(EVP_PKEY_CTX_set_rsa_mgf1_md(parameters, OpensslDigest(hash)) == 1);
  }
  return EVP_DigestVerify(c.get(), signature.data(), signature.size(), message.data(),
                          message.size()) == 1;
}

bool OpensslKey::VerifiesDigest(const Bytes& digest, const Bytes& signature) const {
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_verify_init(c.get()) == 1);
  return EVP_PKEY_verify(c.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

Bytes OpensslKey::EncryptPkcs1(const Bytes& message) const {
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_encrypt_init(c.get()) == 1);
  return Encrypt(c.get(), message);
}

Bytes OpensslKey::EncryptOaep(Hash hash, const Bytes& message) const {
  const Context c = ContextOf(key_.get());
  Require(EVP_PKEY_encrypt_init(c.get()) == 1);
  Require(EVP_PKEY_CTX_set_rsa_padding(c.get(), RSA_PKCS1_OAEP_PADDING) == 1);
  Require(EVP_PKEY_CTX_set_rsa_oaep_md(c.get(), OpensslDigest(hash)) == 1);
  Require(EVP_PKEY_CTX_set_rsa_mgf1_md(c.get(), OpensslDigest(hash)) == 1);
  return Encrypt(c.get(), message);
}

Bytes SealAesGcm(const Bytes& key, const Bytes& authenticated, const Bytes& message) {
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> c(EVP_CIPHER_CTX_new(),
                                                                          EVP_CIPHER_CTX_free);
  const EVP_CIPHER* cipher = key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
  const Bytes iv(16);
  Bytes sealed(message.size() + 16);
  int written = 0;
  Require(EVP_EncryptInit_ex(c.get(), cipher, nullptr, nullptr, nullptr) == 1);
  Require(EVP_CIPHER_CTX_ctrl(c.get(), EVP_CTRL_AEAD_SET_IVLEN, 16, nullptr) == 1);
  Require(EVP_EncryptInit_ex(c.get(), nullptr, nullptr, key.data(), iv.data()) == 1);
  Require(EVP_EncryptUpdate(c.get(), nullptr, &written, authenticated.data(),
                            static_cast<int>(authenticated.size())) == 1);
  Require(EVP_EncryptUpdate(c.get(), sealed.data(), &written, message.data(),
                            static_cast<int>(message.size())) == 1);
  unsigned char* tag = sealed.data() + message.size();
  Require(EVP_EncryptFinal_ex(c.get(), tag, &written) == 1);
  Require(EVP_CIPHER_CTX_ctrl(c.get(), EVP_CTRL_AEAD_GET_TAG, 16, tag) == 1);
  return sealed;
}

Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace host::testing
