#include "adapter/certificate.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "adapter/testing/certificates.h"

namespace kelvrin::adapter {
namespace {

TEST(CertificateTest, OtherBytesAreNoCertificate) {
  const Bytes der = MakeCertificate({});
  EXPECT_FALSE(ReadCertificate({}));
  for (const std::size_t size : {std::size_t{1}, std::size_t{4}, der.size() / 2, der.size() - 1}) {
    EXPECT_FALSE(ReadCertificate(ByteView(der).first(size))) << size;
  }
  Bytes longer = der;
  longer.push_back(0);
  EXPECT_FALSE(ReadCertificate(longer));
  EXPECT_FALSE(ReadCertificate(Bytes((1U << 20) + 1, 0x30)));
}

TEST(CertificateTest, ProgramsErrorsOfOpensslStayAsTheyAre) {
  ERR_clear_error();
  ERR_raise(ERR_LIB_USER, 42);
  EXPECT_FALSE(ReadCertificate(Bytes{0x30, 3, 1, 2, 3}));
  EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
  EXPECT_EQ(ERR_get_error(), 0u);
}

// One changed byte at a time: whatever it gives, nothing is read past the end.
TEST(CertificateTest, DamagedCertificatesAreReadOrRefused) {
  const Bytes der = MakeCertificate({.extensions = {{"basicConstraints", "CA:TRUE"}}});
  for (std::size_t i = 0; i < der.size(); ++i) {
    Bytes damaged = der;
    damaged[i] ^= 0xff;
    const auto facts = ReadCertificate(damaged);
    EXPECT_TRUE(!facts || !facts->subject.empty());
  }
}

TEST(CertificateTest, RsaKeyIsRead) {
  const auto facts = ReadCertificate(MakeCertificate({.key = "RSA"}));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->key_type, CKK_RSA);
  EXPECT_EQ(facts->modulus.size(), 256u);
  EXPECT_NE(facts->modulus.front(), 0);
  EXPECT_EQ(facts->public_exponent, (Bytes{1, 0, 1}));
  EXPECT_TRUE(facts->ec_point.empty());
}

TEST(CertificateTest, EcKeyIsReadUncompressed) {
  const auto facts = ReadCertificate(MakeCertificate({.key = "P-256"}));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->key_type, CKK_EC);
  EXPECT_EQ(facts->ec_parameters,
            (Bytes{0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07}));
  ASSERT_EQ(facts->ec_point.size(), 65u);
  EXPECT_EQ(facts->ec_point.front(), 4);
  EXPECT_TRUE(facts->modulus.empty());
}

TEST(CertificateTest, OtherKindsOfKeyHaveNoType) {
  const auto facts = ReadCertificate(MakeCertificate({.key = "ED25519"}));
  ASSERT_TRUE(facts);
  EXPECT_FALSE(facts->key_type);
}

TEST(CertificateTest, NamesTellWhoIssuedWhom) {
  const auto root = ReadCertificate(MakeCertificate({.subject = "Root", .issuer = "Root"}));
  const auto person = ReadCertificate(MakeCertificate({.subject = "Person", .issuer = "Root"}));
  ASSERT_TRUE(root && person);
  EXPECT_EQ(person->issuer, root->subject);
  EXPECT_NE(person->subject, root->subject);
}

TEST(CertificateTest, AuthoritiesAreKnownByTheirConstraints) {
  const auto is_ca = [](const char* constraints) {
    const auto facts =
        ReadCertificate(MakeCertificate({.extensions = {{"basicConstraints", constraints}}}));
    return facts && facts->is_ca;
  };
  EXPECT_TRUE(is_ca("CA:TRUE"));
  EXPECT_TRUE(is_ca("critical,CA:TRUE,pathlen:0"));
  EXPECT_FALSE(is_ca("CA:FALSE"));
  EXPECT_FALSE(ReadCertificate(MakeCertificate({}))->is_ca);
}

TEST(CertificateTest, UsageTellsWhetherTheKeySignsOnlyCertificates) {
  const auto only = [](const std::string& usage) {
    return ReadCertificate(MakeCertificate({.extensions = {{"keyUsage", usage}}}))
        ->signs_certificates_only;
  };
  EXPECT_TRUE(only("keyCertSign"));
  EXPECT_TRUE(only("keyCertSign,cRLSign"));
  for (const std::string use : {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                "dataEncipherment", "keyAgreement"}) {
    EXPECT_FALSE(only("keyCertSign," + use)) << use;
    EXPECT_FALSE(only(use)) << use;
  }
  EXPECT_FALSE(ReadCertificate(MakeCertificate({}))->signs_certificates_only);
}

}  // namespace
}  // namespace kelvrin::adapter
