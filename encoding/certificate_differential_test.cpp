// Our reading of certificates beside OpenSSL's, over certificates as they should be and over many
// that were damaged.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "encoding/certificate.h"
#include "encoding/testing/certificate_comparison.h"
#include "encoding/testing/certificates.h"

namespace kelvrin::encoding {
namespace {

const std::pair<std::string, std::string> kIsAnAuthority = {"basicConstraints", "critical,CA:TRUE"};

// A certificate of every kind that tests can make.
std::vector<CertificateWish> Wishes() {
  std::vector<CertificateWish> wishes = {
      {.key = "RSA"},
      {.key = "RSA", .version = 1},
      {.key = "RSA", .extensions = {{"basicConstraints", "CA:TRUE,pathlen:0"}}},
      {.key = "RSA", .extensions = {kIsAnAuthority, {"keyUsage", "critical,keyCertSign,cRLSign"}}},
      {.version = 1},
      {.extensions = {kIsAnAuthority, kIsAnAuthority, {"keyUsage", "keyCertSign"}}},
      {.extensions = {kIsAnAuthority, {"keyUsage", "keyCertSign"}, {"keyUsage", "keyCertSign"}}},
      {.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"},
                      {"extendedKeyUsage", "clientAuth,emailProtection"},
                      {"subjectAltName", "email:someone@example.org"}}},
      {.key = "ED25519"}};
  for (const char* curve :
       {"P-256", "P-384", "P-521", "secp256k1", "brainpoolP256r1", "brainpoolP384r1"}) {
    wishes.push_back({.key = curve, .extensions = {kIsAnAuthority, {"keyUsage", "keyCertSign"}}});
  }
  for (const char* usage : {"digitalSignature", "keyCertSign", "keyCertSign,keyAgreement",
                            "keyCertSign,decipherOnly", "cRLSign"}) {
    wishes.push_back({.extensions = {{"keyUsage", usage}}});
  }
  return wishes;
}

// Whether both take the bytes for a certificate with a key; fails where they read different things.
bool Agree(const Bytes& der) {
  const Comparison comparison = CompareWithOpenssl(der);
  EXPECT_EQ(comparison.difference, "");
  return comparison.has_key;
}

// What the test of one kind of certificate is called in messages.
std::string NameOf(const CertificateWish& wish) {
  std::string name = wish.key + " version " + std::to_string(wish.version);
  for (const auto& [extension, value] : wish.extensions) name += ", " + extension + "=" + value;
  return name;
}

TEST(CertificateDifferentialTest, WholeCertificatesAreReadAlike) {
  for (const CertificateWish& wish : Wishes()) {
    SCOPED_TRACE(NameOf(wish));
    const Bytes der = MakeCertificate(wish);
    EXPECT_EQ(Agree(der), wish.key != "ED25519");
    ASSERT_TRUE(ReadCertificate(der));
    EXPECT_EQ(ReadCertificate(der)->key_type, ReadCertificateWithOpenssl(der)->key_type);
  }
}

// Every byte with its first, its last, all and another one of its bits changed.
TEST(CertificateDifferentialTest, CertificatesWithAChangedByteAreReadAlikeOrRefused) {
  for (const CertificateWish& wish : Wishes()) {
    SCOPED_TRACE(NameOf(wish));
    const Bytes der = MakeCertificate(wish);
    int agreements = 0;
    for (std::size_t i = 0; i < der.size(); ++i) {
      for (const int change : {0x01, 0x80, 0xff, 1 << i % 8}) {
        Bytes changed = der;
        changed[i] = static_cast<unsigned char>(der[i] ^ change);
        if (Agree(changed)) ++agreements;
        ASSERT_FALSE(HasFailure()) << "byte " << i << " changed by " << change;
      }
    }
    // The signature at least may be any bytes.
    EXPECT_EQ(agreements > 64 * 4, wish.key != "ED25519") << agreements;
  }
}

TEST(CertificateDifferentialTest, CutCertificatesAreRefusedByBoth) {
  for (const CertificateWish& wish : Wishes()) {
    const Bytes der = MakeCertificate(wish);
    for (std::size_t size = 0; size < der.size(); ++size) {
      // On the heap at its exact size, so that a sanitizer sees what is read past its end.
      const Bytes cut(der.begin(), der.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(ReadCertificate(cut)) << size;
      EXPECT_FALSE(ReadCertificateWithOpenssl(cut)) << size;
    }
  }
}

}  // namespace
}  // namespace kelvrin::encoding
