// With OpenSSL.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>

#include "modulecheck/verify.h"

namespace kelvrin::modulecheck {
namespace {

struct Free {
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
using PublicKey = std::unique_ptr<EVP_PKEY, Free>;
using Context = std::unique_ptr<EVP_PKEY_CTX, Free>;

PublicKey ReadKey(ByteView certificate) {
  const unsigned char* at = certificate.data();
  const std::unique_ptr<X509, Free> read(
      d2i_X509(nullptr, &at, static_cast<long>(certificate.size())));
  return PublicKey(read == nullptr ? nullptr : X509_get_pubkey(read.get()));
}

Context MakeContext(EVP_PKEY* key) {
  return Context(key == nullptr ? nullptr : EVP_PKEY_CTX_new(key, nullptr));
}

}  // namespace

bool IsRsaSignature(ByteView certificate, ByteView block, ByteView signature) {
  const PublicKey key = ReadKey(certificate);
  const Context context = MakeContext(key.get());
  if (context == nullptr || EVP_PKEY_verify_recover_init(context.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) <= 0) {
    return false;
  }
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key.get()));
  Bytes recovered(size);
  return EVP_PKEY_verify_recover(context.get(), recovered.data(), &size, signature.data(),
                                 signature.size()) > 0 &&
         std::ranges::equal(std::span(recovered).first(size), block);
}

bool IsEcdsaSignature(ByteView certificate, ByteView digest, ByteView signature) {
  const PublicKey key = ReadKey(certificate);
  const Context context = MakeContext(key.get());
  return context != nullptr && EVP_PKEY_verify_init(context.get()) > 0 &&
         EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) > 0;
}

std::optional<Bytes> Encrypt(ByteView certificate, ByteView message) {
  const PublicKey key = ReadKey(certificate);
  const Context context = MakeContext(key.get());
  if (context == nullptr || EVP_PKEY_encrypt_init(context.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) <= 0) {
    return std::nullopt;
  }
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(key.get()));
  Bytes ciphertext(size);
  if (EVP_PKEY_encrypt(context.get(), ciphertext.data(), &size, message.data(), message.size()) <=
      0) {
    return std::nullopt;
  }
  ciphertext.resize(size);
  return ciphertext;
}

std::optional<Peer> MakePeer(ByteView certificate) {
  const PublicKey card = ReadKey(certificate);
  const Context maker = MakeContext(card.get());
  EVP_PKEY* made = nullptr;
  if (maker == nullptr || EVP_PKEY_keygen_init(maker.get()) <= 0 ||
      EVP_PKEY_keygen(maker.get(), &made) <= 0) {
    return std::nullopt;
  }
  const PublicKey own(made);
  Peer peer;
  unsigned char* point = nullptr;
  const std::size_t point_size = EVP_PKEY_get1_encoded_public_key(own.get(), &point);
  peer.point.assign(point, point + point_size);
  OPENSSL_free(point);
  const Context context = MakeContext(own.get());
  std::size_t size = 0;
  if (context == nullptr || EVP_PKEY_derive_init(context.get()) <= 0 ||
      EVP_PKEY_derive_set_peer(context.get(), card.get()) <= 0 ||
      EVP_PKEY_derive(context.get(), nullptr, &size) <= 0) {
    return std::nullopt;
  }
  peer.secret.resize(size);
  if (EVP_PKEY_derive(context.get(), peer.secret.data(), &size) <= 0) return std::nullopt;
  peer.secret.resize(size);
  return peer;
}

}  // namespace kelvrin::modulecheck
