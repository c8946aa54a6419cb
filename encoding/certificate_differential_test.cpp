// Our reading of certificates beside OpenSSL's, over certificates as they should be and over many
// that were damaged.
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <vector>

#include "encoding/certificate.h"
#include "encoding/testing/certificates.h"
#include "encoding/testing/openssl_certificate.h"

namespace kelvrin::encoding {
namespace {

template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

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

// Whether OpenSSL knows the curve, and the point does not lie on it.
bool IsOffCurve(const CertificateFacts& facts) {
  const unsigned char* next = facts.ec_parameters.data();
  const Owned<EC_GROUP> curve(
      d2i_ECPKParameters(nullptr, &next, static_cast<long>(facts.ec_parameters.size())),
      EC_GROUP_free);
  if (curve == nullptr) return false;
  const Owned<EC_POINT> point(EC_POINT_new(curve.get()), EC_POINT_free);
  return EC_POINT_oct2point(curve.get(), point.get(), facts.ec_point.data(), facts.ec_point.size(),
                            nullptr) != 1;
}

// Whether OpenSSL says so of the certificate without its other extensions. It takes no usage from a
// certificate in which any extension that it knows is broken; ours looks at these two alone.
bool SignsCertificatesOnlyWithoutOtherExtensions(const Bytes& der) {
  const unsigned char* next = der.data();
  const Owned<X509> certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())), X509_free);
  for (int i = X509_get_ext_count(certificate.get()) - 1; i >= 0; --i) {
    const int kind = OBJ_obj2nid(X509_EXTENSION_get_object(X509_get_ext(certificate.get(), i)));
    if (kind != NID_basic_constraints && kind != NID_key_usage) {
      X509_EXTENSION_free(X509_delete_ext(certificate.get(), i));
    }
  }
  i2d_re_X509_tbs(certificate.get(), nullptr);
  unsigned char* out = nullptr;
  const int size = i2d_X509(certificate.get(), &out);
  const Bytes changed(out, out + size);
  OPENSSL_free(out);
  return ReadCertificateWithOpenssl(changed)->signs_certificates_only;
}

// Compares the two where both take the bytes for a certificate; whether they do, with a key.
bool Agree(const Bytes& der) {
  const auto ours = ReadCertificate(der);
  const auto read = ReadCertificateWithOpenssl(der);
  if (!ours || !read) return false;
  EXPECT_EQ(ours->subject, read->subject);
  EXPECT_EQ(ours->issuer, read->issuer);
  EXPECT_EQ(ours->is_ca, read->is_ca);
  if (ours->signs_certificates_only != read->signs_certificates_only) {
    EXPECT_EQ(ours->signs_certificates_only, SignsCertificatesOnlyWithoutOtherExtensions(der));
  }
  if (!ours->key_type) return false;
  if (!read->key_type) {
    EXPECT_EQ(ours->key_type, CKK_EC);
    EXPECT_TRUE(IsOffCurve(*ours));
    return true;
  }
  EXPECT_EQ(ours->key_type, read->key_type);
  EXPECT_EQ(ours->modulus, read->modulus);
  EXPECT_EQ(ours->public_exponent, read->public_exponent);
  EXPECT_EQ(ours->ec_parameters, read->ec_parameters);
  EXPECT_EQ(ours->ec_point, read->ec_point);
  return true;
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
