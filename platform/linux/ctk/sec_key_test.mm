#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <memory>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key RsaKey() { return {EVP_RSA_gen(2048), EVP_PKEY_free}; }
Key EcKey() { return {EVP_EC_gen("P-256"), EVP_PKEY_free}; }

// A certificate, its key as Security hands it out, and a signature over the SHA-256 of "message".
struct Signed {
  explicit Signed(const Key &made) {
    const Bytes der = kelvrin::encoding::MakeCertificateOf(made.get(), {});
    key = (SecKeyRef)[(id)SecCertificateCopyKey(CertificateOf(der)) autorelease];
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    size_t size = 1024;
    signature.resize(size);
    EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, made.get());
    EVP_DigestSign(context, signature.data(), &size, message.data(), message.size());
    EVP_MD_CTX_free(context);
    signature.resize(size);
  }

  bool Verifies(SecKeyAlgorithm algorithm) const {
    return SecKeyVerifySignature(key, algorithm, (CFDataRef)DataOf(message),
                                 (CFDataRef)DataOf(signature), nullptr) != 0;
  }

  Bytes message = {'m', 'e', 's', 's', 'a', 'g', 'e'};
  SecKeyRef key;
  Bytes signature;
};

TEST(SecKey, VerifiesWhatItsPrivateHalfSigned) {
  const struct {
    Key (*make)();
    SecKeyAlgorithm own, other;
  } rows[] = {{RsaKey, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256,
               kSecKeyAlgorithmECDSASignatureMessageX962SHA256},
              {EcKey, kSecKeyAlgorithmECDSASignatureMessageX962SHA256,
               kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256}};
  for (const auto &row : rows) {
    Signed made(row.make());
    EXPECT_TRUE(made.Verifies(row.own));
    EXPECT_FALSE(made.Verifies(row.other));
    EXPECT_FALSE(made.Verifies(kSecKeyAlgorithmRSASignatureRaw));
    made.message.back() ^= 1;
    EXPECT_FALSE(made.Verifies(row.own));
    made.message.back() ^= 1;
    made.signature.back() ^= 1;
    EXPECT_FALSE(made.Verifies(row.own));
    made.signature.clear();
    EXPECT_FALSE(made.Verifies(row.own));
  }
}

TEST(SecKey, OfAnUnknownKindIsNone) {
  const Bytes der = kelvrin::encoding::MakeCertificate({.key = "ED25519"});
  EXPECT_EQ(SecCertificateCopyKey(CertificateOf(der)), nullptr);
}

}  // namespace
