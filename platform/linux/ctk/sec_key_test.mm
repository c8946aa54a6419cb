// Public keys of certificates.
#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <memory>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

constexpr long kParameter = -50;        // errSecParam
constexpr long kVerifyFailed = -67808;  // errSecVerifyFailed

// Made once: it takes its time.
const Key &RsaKey() {
  static const Key key(EVP_RSA_gen(2048), EVP_PKEY_free);
  return key;
}
const Key &EcKey() {
  static const Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  return key;
}

// The key of a certificate for a key as Security hands it out; it lives as long as the pool.
SecKeyRef PublicHalf(const Key &key) {
  const Bytes der = kelvrin::encoding::MakeCertificateOf(key.get(), {});
  return (SecKeyRef)[(id)SecCertificateCopyKey(CertificateOf(der)) autorelease];
}

// A key as Security hands it out, and a signature over the SHA-256 of "message".
struct Signed {
  explicit Signed(const Key &made, bool pss = false) : key(PublicHalf(made)) {
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_PKEY_CTX *padding = nullptr;
    size_t size = 1024;
    signature.resize(size);
    EVP_DigestSignInit(context, &padding, EVP_sha256(), nullptr, made.get());
    if (pss) {
      EVP_PKEY_CTX_set_rsa_padding(padding, RSA_PKCS1_PSS_PADDING);
      EVP_PKEY_CTX_set_rsa_pss_saltlen(padding, RSA_PSS_SALTLEN_DIGEST);
    }
    EVP_DigestSign(context, signature.data(), &size, message.data(), message.size());
    EVP_MD_CTX_free(context);
    signature.resize(size);
  }

  // 0 when the signature verifies, or else the error's code.
  long Verdict(SecKeyAlgorithm algorithm) const {
    CFErrorRef error = nullptr;
    const bool verified = SecKeyVerifySignature(key, algorithm, (CFDataRef)DataOf(message),
                                                (CFDataRef)DataOf(signature), &error) != 0;
    EXPECT_EQ(verified, error == nullptr);
    return [[(NSError *)error autorelease] code];
  }

  Bytes message = {'m', 'e', 's', 's', 'a', 'g', 'e'};
  SecKeyRef key;
  Bytes signature;
};

TEST(SecKey, VerifiesWhatItsPrivateHalfSigned) {
  const struct {
    const Key &(*make)();
    bool pss;
    SecKeyAlgorithm own, other;
    long other_code;
  } rows[] = {{RsaKey, false, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256,
               kSecKeyAlgorithmRSASignatureMessagePSSSHA256, kVerifyFailed},
              {RsaKey, true, kSecKeyAlgorithmRSASignatureMessagePSSSHA256,
               kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, kVerifyFailed},
              {RsaKey, false, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256,
               kSecKeyAlgorithmECDSASignatureMessageX962SHA256, kParameter},
              {EcKey, false, kSecKeyAlgorithmECDSASignatureMessageX962SHA256,
               kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, kParameter}};
  for (const auto &row : rows) {
    Signed made(row.make(), row.pss);
    EXPECT_EQ(made.Verdict(row.own), 0);
    EXPECT_EQ(made.Verdict(row.other), row.other_code);
    EXPECT_EQ(made.Verdict(kSecKeyAlgorithmRSASignatureRaw), kParameter);
    made.message.back() ^= 1;
    EXPECT_EQ(made.Verdict(row.own), kVerifyFailed);
    made.message.back() ^= 1;
    made.signature.back() ^= 1;
    EXPECT_EQ(made.Verdict(row.own), kVerifyFailed);
    made.signature.clear();
    EXPECT_EQ(made.Verdict(row.own), kVerifyFailed);
  }
}

// What the key's private half makes of a ciphertext with this padding.
std::string Decrypted(const Key &key, NSData *ciphertext, bool oaep) {
  EVP_PKEY_CTX *context = EVP_PKEY_CTX_new(key.get(), nullptr);
  EVP_PKEY_decrypt_init(context);
  EVP_PKEY_CTX_set_rsa_padding(context, oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING);
  if (oaep) EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256());
  unsigned char plaintext[256];
  size_t size = sizeof(plaintext);
  const int done =
      EVP_PKEY_decrypt(context, plaintext, &size,
                       static_cast<const unsigned char *>([ciphertext bytes]), [ciphertext length]);
  EVP_PKEY_CTX_free(context);
  return done == 1 ? std::string(plaintext, plaintext + size) : "not decrypted";
}

TEST(SecKey, EncryptsForItsPrivateHalf) {
  const Key &made = RsaKey();
  for (const bool oaep : {true, false}) {
    CFDataRef ciphertext = SecKeyCreateEncryptedData(
        PublicHalf(made),
        oaep ? kSecKeyAlgorithmRSAEncryptionOAEPSHA256 : kSecKeyAlgorithmRSAEncryptionPKCS1,
        (CFDataRef)[@"text" dataUsingEncoding:NSUTF8StringEncoding], nullptr);
    EXPECT_EQ(Decrypted(made, [(NSData *)ciphertext autorelease], oaep), "text");
  }
}

TEST(SecKey, SaysWhyItDoesNotEncrypt) {
  const struct {
    const Key &(*make)();
    SecKeyAlgorithm algorithm;
    NSUInteger size;
  } rows[] = {{EcKey, kSecKeyAlgorithmRSAEncryptionPKCS1, 1},
              {RsaKey, kSecKeyAlgorithmRSAEncryptionRaw, 1},
              {RsaKey, kSecKeyAlgorithmRSAEncryptionPKCS1, 256}};
  for (const auto &row : rows) {
    CFErrorRef error = nullptr;
    CFDataRef data = (CFDataRef)[NSMutableData dataWithLength:row.size];
    SecKeyRef key = PublicHalf(row.make());
    EXPECT_EQ(SecKeyCreateEncryptedData(key, row.algorithm, data, &error), nullptr);
    EXPECT_EQ(TextOf([(NSError *)error domain]), "NSOSStatusErrorDomain");
    EXPECT_EQ([[(NSError *)error autorelease] code], kParameter);
    EXPECT_EQ(SecKeyCreateEncryptedData(key, row.algorithm, data, nullptr), nullptr);
  }
}

TEST(SecKey, OfACertificateNeitherSignsNorDecrypts) {
  SecKeyRef key = PublicHalf(RsaKey());
  CFDataRef data = (CFDataRef)[NSData data];
  EXPECT_EQ(
      SecKeyCreateSignature(key, kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256, data, nullptr),
      nullptr);
  EXPECT_EQ(SecKeyCreateDecryptedData(key, kSecKeyAlgorithmRSAEncryptionPKCS1, data, nullptr),
            nullptr);
}

TEST(SecKey, OfACertificateSupportsWhatItDoes) {
  SecKeyRef rsa = PublicHalf(RsaKey());
  SecKeyRef ec = PublicHalf(EcKey());
  const struct {
    SecKeyOperationType operation;
    SecKeyAlgorithm algorithm;
    bool rsa, ec;
  } rows[] = {
      {kSecKeyOperationTypeVerify, kSecKeyAlgorithmRSASignatureMessagePSSSHA256, true, false},
      {kSecKeyOperationTypeVerify, kSecKeyAlgorithmECDSASignatureMessageX962SHA256, false, true},
      {kSecKeyOperationTypeEncrypt, kSecKeyAlgorithmRSAEncryptionPKCS1, true, false},
      {kSecKeyOperationTypeEncrypt, kSecKeyAlgorithmRSASignatureMessagePSSSHA256, false, false},
      {kSecKeyOperationTypeSign, kSecKeyAlgorithmRSASignatureMessagePSSSHA256, false, false}};
  for (const auto &row : rows) {
    EXPECT_EQ(SecKeyIsAlgorithmSupported(rsa, row.operation, row.algorithm) != 0, row.rsa);
    EXPECT_EQ(SecKeyIsAlgorithmSupported(ec, row.operation, row.algorithm) != 0, row.ec);
  }
}

TEST(SecKey, OfACertificateTellsWhatItIs) {
  SecKeyRef key = PublicHalf(EcKey());
  NSData *point = [(NSData *)SecKeyCopyExternalRepresentation(key, nullptr) autorelease];
  EXPECT_EQ([point length], 65U);
  NSDictionary *attributes = [(NSDictionary *)SecKeyCopyAttributes(key) autorelease];
  EXPECT_TRUE(
      [[attributes objectForKey:(id)kSecAttrKeyType] isEqual:(id)kSecAttrKeyTypeECSECPrimeRandom]);
  EXPECT_EQ([[attributes objectForKey:(id)kSecAttrKeySizeInBits] integerValue], 256);
  EXPECT_EQ([[attributes objectForKey:(id)kSecAttrApplicationLabel] length], 20U);
}

TEST(SecKey, OfAnUnknownKindIsNone) {
  const Bytes der = kelvrin::encoding::MakeCertificate({.key = "ED25519"});
  EXPECT_EQ(SecCertificateCopyKey(CertificateOf(der)), nullptr);
}

}  // namespace
