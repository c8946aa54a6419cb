#include "encoding/certificate.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "encoding/der.h"
#include "encoding/testing/certificates.h"

namespace kelvrin::encoding {
namespace {

// A certificate whose key is these very bytes under that algorithm, well-formed or not.
Bytes CertificateWithKey(int algorithm, int parameter_type, void* parameters, ByteView key) {
  const Bytes der = MakeCertificate({});
  const unsigned char* next = der.data();
  const std::unique_ptr<X509, void (*)(X509*)> certificate(
      d2i_X509(nullptr, &next, static_cast<long>(der.size())), X509_free);
  // The certificate owns the copy.
  auto* const copy = static_cast<unsigned char*>(OPENSSL_memdup(key.data(), key.size()));
  X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(certificate.get()), OBJ_nid2obj(algorithm),
                         parameter_type, parameters, copy, static_cast<int>(key.size()));
  i2d_re_X509_tbs(certificate.get(), nullptr);  // encodes it anew
  unsigned char* out = nullptr;
  const int size = i2d_X509(certificate.get(), &out);
  Bytes bytes(out, out + size);
  OPENSSL_free(out);
  return bytes;
}

Bytes CertificateWithRsaKey(ByteView modulus) {
  Bytes numbers = WrapDer(0x02, modulus);
  numbers.insert(numbers.end(), {0x02, 3, 1, 0, 1});
  return CertificateWithKey(NID_rsaEncryption, V_ASN1_NULL, nullptr, WrapDer(0x30, numbers));
}

Bytes CertificateWithPoint(ByteView point) {
  return CertificateWithKey(NID_X9_62_id_ecPublicKey, V_ASN1_OBJECT,
                            OBJ_nid2obj(NID_X9_62_prime256v1), point);
}

// A certificate for a new P-256 key in the encoding that `property` of the key asks for.
Bytes CertificateWithEncoding(const char* property, const char* value) {
  const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  EVP_PKEY_set_utf8_string_param(key.get(), property, value);
  X509_PUBKEY* made = nullptr;
  X509_PUBKEY_set(&made, key.get());
  const std::unique_ptr<X509_PUBKEY, void (*)(X509_PUBKEY*)> encoded(made, X509_PUBKEY_free);
  const unsigned char* point = nullptr;
  int size = 0;
  X509_ALGOR* algorithm = nullptr;
  X509_PUBKEY_get0_param(nullptr, &point, &size, &algorithm, encoded.get());
  int type = 0;
  const void* parameters = nullptr;
  X509_ALGOR_get0(nullptr, &type, &parameters, algorithm);
  void* const copy =
      type == V_ASN1_SEQUENCE
          ? static_cast<void*>(ASN1_STRING_dup(static_cast<const ASN1_STRING*>(parameters)))
          : OBJ_dup(static_cast<const ASN1_OBJECT*>(parameters));
  return CertificateWithKey(NID_X9_62_id_ecPublicKey, type, copy,
                            {point, static_cast<std::size_t>(size)});
}

TEST(CertificateTest, OtherBytesAreNoCertificate) {
  const Bytes der = MakeCertificate({});
  EXPECT_FALSE(ReadCertificate({}));
  for (std::size_t size = 1; size < der.size(); ++size) {
    EXPECT_FALSE(ReadCertificate(ByteView(der).first(size))) << size;
  }
  Bytes longer = der;
  longer.push_back(0);
  EXPECT_FALSE(ReadCertificate(longer));
  EXPECT_FALSE(ReadCertificate(Bytes((1U << 20) + 1, 0x30)));
}

TEST(CertificateTest, OneMebibyteIsTheMost) {
  constexpr std::size_t kMost = 1U << 20;
  const auto with_comment = [](std::size_t size) {
    return MakeCertificate({.key = "RSA", .extensions = {{"nsComment", std::string(size, 'x')}}});
  };
  const std::size_t rest = with_comment(kMost - 2000).size() - (kMost - 2000);
  const Bytes most = with_comment(kMost - rest);
  ASSERT_EQ(most.size(), kMost);
  EXPECT_TRUE(ReadCertificate(most));
  EXPECT_FALSE(ReadCertificate(with_comment(kMost - rest + 1)));
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

TEST(CertificateTest, CompressedPointHasNoType) {
  const Bytes der =
      CertificateWithEncoding(OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT, "compressed");
  ASSERT_LT(der.size(), MakeCertificate({}).size() - 20) << "is not compressed";
  const auto facts = ReadCertificate(der);
  ASSERT_TRUE(facts);
  EXPECT_FALSE(facts->key_type);
  EXPECT_TRUE(facts->ec_parameters.empty());
  EXPECT_TRUE(facts->ec_point.empty());
}

TEST(CertificateTest, OtherKindsOfKeyHaveNoType) {
  const Bytes numbers = {0x30, 6, 0x02, 1, 15, 0x02, 1, 3};
  for (const Bytes& der : {MakeCertificate({.key = "ED25519"}),
                           CertificateWithKey(NID_rsassaPss, V_ASN1_UNDEF, nullptr, numbers)}) {
    const auto facts = ReadCertificate(der);
    ASSERT_TRUE(facts);
    EXPECT_FALSE(facts->key_type);
  }
}

TEST(CertificateTest, CurveThatIsNotNamedHasNoType) {
  const Bytes der =
      CertificateWithEncoding(OSSL_PKEY_PARAM_EC_ENCODING, OSSL_PKEY_EC_ENCODING_EXPLICIT);
  ASSERT_GT(der.size(), MakeCertificate({}).size() + 100) << "is not explicit";
  const auto facts = ReadCertificate(der);
  ASSERT_TRUE(facts);
  EXPECT_FALSE(facts->key_type);
  EXPECT_TRUE(facts->ec_parameters.empty());
  EXPECT_TRUE(facts->ec_point.empty());
}

TEST(CertificateTest, PointThatIsNoKeyHasNoType) {
  Bytes off_field(33, 0xff);
  off_field[0] = 2;
  const Bytes infinity = {0};
  for (const Bytes& point : {infinity, off_field, Bytes{4}, Bytes(100, 4)}) {
    const auto facts = ReadCertificate(CertificateWithPoint(point));
    ASSERT_TRUE(facts);
    EXPECT_FALSE(facts->key_type) << point.size();
    EXPECT_TRUE(facts->ec_parameters.empty());
    EXPECT_TRUE(facts->ec_point.empty());
  }
}

TEST(CertificateTest, RsaKeyMayBeLongButNotZero) {
  Bytes modulus(2048, 0xff);
  Bytes number = modulus;
  number.insert(number.begin(), 0);
  const auto facts = ReadCertificate(CertificateWithRsaKey(number));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->key_type, CKK_RSA);
  EXPECT_EQ(facts->modulus, modulus);

  const auto zero = ReadCertificate(CertificateWithRsaKey(Bytes{0}));
  ASSERT_TRUE(zero);
  EXPECT_FALSE(zero->key_type);
  EXPECT_TRUE(zero->public_exponent.empty());
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
}  // namespace kelvrin::encoding
