#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <vector>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using test_certificates::KeyKind;
using Bytes = std::vector<uint8_t>;

// A certificate, its key as Security hands it out, and a signature over the SHA-256 of "message".
struct Signed {
  explicit Signed(KeyKind kind) {
    const test_certificates::Certificate made = test_certificates::Make(kind, {{"CN", "Test"}});
    key = (SecKeyRef)[(id)SecCertificateCopyKey(CertificateOf(made.der)) autorelease];
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    size_t size = 1024;
    signature.resize(size);
    EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, made.key.get());
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
    KeyKind kind;
    SecKeyAlgorithm own, other;
  } rows[] = {{KeyKind::kRsa2048, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256,
               kSecKeyAlgorithmECDSASignatureMessageX962SHA256},
              {KeyKind::kP256, kSecKeyAlgorithmECDSASignatureMessageX962SHA256,
               kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256}};
  for (const auto &row : rows) {
    Signed made(row.kind);
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
  const Bytes der = test_certificates::Make(KeyKind::kEd25519, {{"CN", "Test"}}).der;
  EXPECT_EQ(SecCertificateCopyKey(CertificateOf(der)), nullptr);
}

}  // namespace
