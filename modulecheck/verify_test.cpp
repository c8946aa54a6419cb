// What is computed with OpenSSL, held against the same of the other half of the key.
#include "modulecheck/verify.h"

#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace kelvrin::modulecheck {
namespace {

struct Pair {
  std::shared_ptr<EVP_PKEY> key;
  Bytes certificate;
};

Pair Make(EVP_PKEY* key) {
  Pair pair = {{key, EVP_PKEY_free}, {}};
  const std::unique_ptr<X509, decltype(&X509_free)> made(X509_new(), X509_free);
  X509_gmtime_adj(X509_getm_notBefore(made.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(made.get()), 3600);
  X509_set_pubkey(made.get(), key);
  X509_sign(made.get(), key, EVP_sha256());
  pair.certificate.resize(static_cast<std::size_t>(i2d_X509(made.get(), nullptr)));
  unsigned char* at = pair.certificate.data();
  i2d_X509(made.get(), &at);
  return pair;
}

using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;
Context MakeContext(const Pair& pair) {
  return {EVP_PKEY_CTX_new(pair.key.get(), nullptr), EVP_PKEY_CTX_free};
}

Bytes Sign(const Pair& pair, const Bytes& data, int padding = 0) {
  const Context context = MakeContext(pair);
  EXPECT_GT(EVP_PKEY_sign_init(context.get()), 0);
  if (padding != 0) EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
  std::size_t size = 1024;
  Bytes signature(size);
  EXPECT_GT(EVP_PKEY_sign(context.get(), signature.data(), &size, data.data(), data.size()), 0);
  signature.resize(size);
  return signature;
}

class VerifyTest : public testing::Test {
 protected:
  const Pair rsa_ = Make(EVP_RSA_gen(2048));
  const Pair ec_ = Make(EVP_EC_gen("P-256"));
};

TEST_F(VerifyTest, ARawRsaSignatureGivesItsBlockBackOrIsWrong) {
  Bytes block(256, 0x5a);
  block[0] = 0;
  Bytes signature = Sign(rsa_, block, RSA_NO_PADDING);
  EXPECT_TRUE(IsRsaSignature(rsa_.certificate, block, signature));
  EXPECT_FALSE(IsRsaSignature(rsa_.certificate, Bytes(256, 1), signature));
  EXPECT_FALSE(IsRsaSignature(ec_.certificate, block, signature));
  EXPECT_FALSE(IsRsaSignature({}, block, signature));
  signature.back() ^= 1;
  EXPECT_FALSE(IsRsaSignature(rsa_.certificate, block, signature));
  EXPECT_FALSE(IsRsaSignature(rsa_.certificate, block, {}));
}

TEST_F(VerifyTest, AnEcdsaSignatureIsOneOfItsDigestOrIsWrong) {
  const Bytes digest(32, 0x11);
  const Bytes signature = Sign(ec_, digest);
  EXPECT_TRUE(IsEcdsaSignature(ec_.certificate, digest, signature));
  EXPECT_FALSE(IsEcdsaSignature(ec_.certificate, Bytes(32, 0x12), signature));
  EXPECT_FALSE(IsEcdsaSignature(ec_.certificate, digest, Bytes(64, 1)));
  EXPECT_FALSE(IsEcdsaSignature({}, digest, signature));
}

TEST_F(VerifyTest, WhatIsEncryptedTheKeyDecrypts) {
  const Bytes message = {1, 2, 3};
  const Bytes ciphertext = Encrypt(rsa_.certificate, message).value_or(Bytes());
  const Context context = MakeContext(rsa_);
  EVP_PKEY_decrypt_init(context.get());
  EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING);
  Bytes plaintext(256);
  std::size_t size = plaintext.size();
  EVP_PKEY_decrypt(context.get(), plaintext.data(), &size, ciphertext.data(), ciphertext.size());
  plaintext.resize(size);
  EXPECT_EQ(plaintext, message);
  EXPECT_FALSE(Encrypt(ec_.certificate, message));
  EXPECT_FALSE(Encrypt({}, message));
}

TEST_F(VerifyTest, APeerAgreesWithTheKey) {
  const Peer peer = MakePeer(ec_.certificate).value_or(Peer());
  ASSERT_EQ(peer.point.size(), 65u);
  const std::shared_ptr<EVP_PKEY> other(EVP_PKEY_new(), EVP_PKEY_free);
  EVP_PKEY_copy_parameters(other.get(), ec_.key.get());
  ASSERT_GT(EVP_PKEY_set1_encoded_public_key(other.get(), peer.point.data(), peer.point.size()), 0);
  const Context context = MakeContext(ec_);
  EVP_PKEY_derive_init(context.get());
  EVP_PKEY_derive_set_peer(context.get(), other.get());
  Bytes secret(32);
  std::size_t size = secret.size();
  ASSERT_GT(EVP_PKEY_derive(context.get(), secret.data(), &size), 0);
  EXPECT_EQ(secret, peer.secret);
  EXPECT_FALSE(MakePeer({}));
}

}  // namespace
}  // namespace kelvrin::modulecheck
