// Certificates put together by hand: each part of them can be wrong in its own way. Whole ones are
// read beside OpenSSL in certificate_differential_test.
#include "encoding/certificate.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "encoding/der.h"
#include "encoding/testing/certificate_comparison.h"
#include "encoding/testing/certificates.h"

namespace kelvrin::encoding {
namespace {

Bytes Join(const std::vector<Bytes>& parts) {
  Bytes joined;
  for (const Bytes& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

Bytes Sequence(const std::vector<Bytes>& parts) { return WrapDer(kDerSequence, Join(parts)); }

const Bytes kTrue = {0x01, 1, 0xff};
const Bytes kNull = {0x05, 0};
const Bytes kRsaIdentifier = {0x06, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 1, 1, 1};
const Bytes kP256 = {0x06, 8, 0x2a, 0x86, 0x48, 0xce, 0x3d, 3, 1, 7};

// The content of each part of a certificate that is as it should be; RSA's modulus is 15.
struct Parts {
  Bytes version = {0xa0, 3, 0x02, 1, 2};
  Bytes serial = {0x02, 1, 1};
  std::vector<Bytes> signature_algorithm = {{0x06, 3, 0x2a, 3, 4}};
  Bytes issuer = {0x31, 9, 0x30, 7, 0x06, 3, 0x55, 4, 3, 0x0c, 0};
  std::vector<Bytes> validity = {{0x17, 1, '0'}, {0x18, 1, '1'}};
  Bytes subject = {};
  std::vector<Bytes> key_algorithm = {kRsaIdentifier, kNull};
  Bytes key = {0, 0x30, 6, 0x02, 1, 15, 0x02, 1, 3};
  std::vector<Bytes> after_key = {};  // in the SubjectPublicKeyInfo
  Bytes unique_ids = {};
  std::vector<Bytes> extensions = {};
  Bytes after_extensions = {};
  Bytes signature = {0, 1};
  Bytes after_signature = {};
};

Bytes Build(const Parts& parts) {
  const Bytes signature_algorithm = Sequence(parts.signature_algorithm);
  const Bytes key = Sequence(
      {Sequence(parts.key_algorithm), WrapDer(kDerBitString, parts.key), Join(parts.after_key)});
  const Bytes extensions =
      parts.extensions.empty() ? Bytes() : WrapDer(0xa3, Sequence(parts.extensions));
  const Bytes contents =
      Sequence({parts.version, parts.serial, signature_algorithm, Sequence({parts.issuer}),
                Sequence(parts.validity), Sequence({parts.subject}), key, parts.unique_ids,
                extensions, parts.after_extensions});
  return Sequence({contents, signature_algorithm, WrapDer(kDerBitString, parts.signature),
                   parts.after_signature});
}

using Change = std::function<void(Parts*)>;

// An EC key with these parameters and this point in place of the RSA key.
Change Ec(const std::vector<Bytes>& parameters, const Bytes& point) {
  return [=](Parts* parts) {
    parts->key_algorithm = {{0x06, 7, 0x2a, 0x86, 0x48, 0xce, 0x3d, 2, 1}};
    parts->key_algorithm.insert(parts->key_algorithm.end(), parameters.begin(), parameters.end());
    parts->key = Join({{0}, point});
  };
}

std::optional<CertificateFacts> ReadChanged(const Change& change) {
  Parts parts;
  change(&parts);
  return ReadCertificate(Build(parts));
}

// An extension under 2.5.29.
Bytes Extension(unsigned char number, const Bytes& value, const Bytes& critical = {}) {
  return Sequence({{0x06, 3, 0x55, 0x1d, number}, critical, WrapDer(kDerOctetString, value)});
}
Bytes Constraints(const std::vector<Bytes>& parts) { return Extension(19, Sequence(parts)); }
Bytes Usage(const Bytes& bits) { return Extension(15, WrapDer(kDerBitString, bits)); }

struct Flags {
  bool is_ca = false;
  bool signs_certificates_only = false;
  bool operator==(const Flags&) const = default;
};
constexpr Flags kNothing = {};
constexpr Flags kAuthority = {.is_ca = true};
constexpr Flags kSigner = {.signs_certificates_only = true};
constexpr Flags kSigningAuthority = {.is_ca = true, .signs_certificates_only = true};

// What the certificate with certain extensions is said to be, by us and by OpenSSL.
void ExpectFlags(const std::string& name, const std::vector<Bytes>& extensions, Flags expected) {
  Parts parts;
  parts.extensions = extensions;
  const Bytes der = Build(parts);
  for (const auto& facts : {ReadCertificate(der), ReadCertificateWithOpenssl(der)}) {
    ASSERT_TRUE(facts) << name;
    EXPECT_EQ((Flags{facts->is_ca, facts->signs_certificates_only}), expected) << name;
  }
}

TEST(CertificateTest, OneMebibyteWithNothingBehindItIsTheMost) {
  constexpr std::size_t kMost = 1U << 20;
  const auto with_comment = [](std::size_t size) {
    return MakeCertificate({.key = "RSA", .extensions = {{"nsComment", std::string(size, 'x')}}});
  };
  const std::size_t rest = with_comment(kMost - 2000).size() - (kMost - 2000);
  Bytes most = with_comment(kMost - rest);
  ASSERT_EQ(most.size(), kMost);
  EXPECT_TRUE(ReadCertificate(most));
  EXPECT_FALSE(ReadCertificate(with_comment(kMost - rest + 1)));
  Bytes longer = Build({});
  longer.push_back(0);
  EXPECT_FALSE(ReadCertificate(longer));
}

TEST(CertificateTest, WholeCertificateIsRead) {
  const auto facts = ReadCertificate(Build({}));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->key_type, CKK_RSA);
  EXPECT_EQ(facts->modulus, Bytes{15});
  EXPECT_EQ(facts->public_exponent, Bytes{3});
  EXPECT_EQ(facts->issuer, Sequence({Parts().issuer}));
  EXPECT_EQ(facts->subject, (Bytes{0x30, 0}));
}

TEST(CertificateTest, PartsThatMayBeOtherwiseAreTaken) {
  const std::vector<std::pair<std::string, Change>> changes = {
      {"no version", [](Parts* p) { p->version.clear(); }},
      {"version 1 written out", [](Parts* p) { p->version[4] = 0; }},
      {"long negative serial number", [](Parts* p) { p->serial = {0x02, 3, 0x80, 0, 0}; }},
      {"parameters of the signature",
       [](Parts* p) { p->signature_algorithm.push_back({0x30, 2, 0, 0}); }},
      {"key without parameters", [](Parts* p) { p->key_algorithm.pop_back(); }},
      {"both unique identifiers", [](Parts* p) { p->unique_ids = {0x81, 1, 0, 0x82, 2, 4, 0xf0}; }},
      {"one of them", [](Parts* p) { p->unique_ids = {0x82, 1, 0}; }},
      {"empty signature", [](Parts* p) { p->signature = {0}; }},
      {"extension", [](Parts* p) { p->extensions = {Extension(14, {}, kTrue)}; }},
  };
  for (const auto& [name, change] : changes) {
    const auto facts = ReadChanged(change);
    ASSERT_TRUE(facts) << name;
    EXPECT_EQ(facts->key_type, CKK_RSA) << name;
  }
}

TEST(CertificateTest, PartsThatAreWrongMakeItNoCertificate) {
  const std::vector<std::pair<std::string, Change>> changes = {
      {"unknown version", [](Parts* p) { p->version[4] = 3; }},
      {"negative version", [](Parts* p) { p->version[4] = 0xff; }},
      {"long version", [](Parts* p) { p->version = {0xa0, 4, 0x02, 2, 0, 2}; }},
      {"two versions", [](Parts* p) { p->version = {0xa0, 6, 0x02, 1, 2, 0x02, 1, 2}; }},
      {"empty version", [](Parts* p) { p->version = {0xa0, 0}; }},
      {"no serial number", [](Parts* p) { p->serial.clear(); }},
      {"empty serial number", [](Parts* p) { p->serial = {0x02, 0}; }},
      {"padded serial number", [](Parts* p) { p->serial = {0x02, 2, 0, 1}; }},
      {"no signature algorithm", [](Parts* p) { p->signature_algorithm.clear(); }},
      {"broken signature algorithm", [](Parts* p) { p->signature_algorithm = {{0x06, 1, 0x80}}; }},
      {"two parameters", [](Parts* p) { p->signature_algorithm.resize(3, kNull); }},
      {"half a parameter", [](Parts* p) { p->signature_algorithm.push_back({0x05}); }},
      {"name without sets", [](Parts* p) { p->issuer = {0x30, 0}; }},
      {"empty set in a name", [](Parts* p) { p->subject = {0x31, 0}; }},
      {"attribute without value", [](Parts* p) { p->subject = {0x31, 5, 0x30, 3, 0x06, 1, 1}; }},
      {"attribute with two values",
       [](Parts* p) { p->subject = {0x31, 9, 0x30, 7, 0x06, 1, 1, 0x0c, 0, 0x0c, 0}; }},
      {"attribute of a broken type",
       [](Parts* p) { p->subject = {0x31, 7, 0x30, 5, 0x06, 1, 0x80, 0x0c, 0}; }},
      {"set of something else", [](Parts* p) { p->subject = {0x31, 2, 0x0c, 0}; }},
      {"no dates", [](Parts* p) { p->validity.clear(); }},
      {"one date", [](Parts* p) { p->validity.pop_back(); }},
      {"three dates", [](Parts* p) { p->validity.push_back({0x17, 0}); }},
      {"number for a date", [](Parts* p) { p->validity[0][0] = kDerInteger; }},
      {"no key algorithm", [](Parts* p) { p->key_algorithm.clear(); }},
      {"empty key", [](Parts* p) { p->key.clear(); }},
      {"eight unused bits", [](Parts* p) { p->key[0] = 8; }},
      {"more than a key", [](Parts* p) { p->after_key = {kNull}; }},
      {"broken unique identifier", [](Parts* p) { p->unique_ids = {0x81, 0}; }},
      {"unique identifiers the wrong way round",
       [](Parts* p) { p->unique_ids = {0x82, 1, 0, 0x81, 1, 0}; }},
      {"extension that is none", [](Parts* p) { p->extensions = {kNull}; }},
      {"extension without value",
       [](Parts* p) { p->extensions = {Sequence({{0x06, 3, 0x55, 0x1d, 19}})}; }},
      {"extension without name",
       [](Parts* p) { p->extensions = {Sequence({WrapDer(kDerOctetString, {})})}; }},
      {"extension with a broken name", [](Parts* p) { p->extensions = {Extension(0x80, {})}; }},
      {"extension with two values",
       [](Parts* p) { p->extensions = {Sequence({{0x06, 1, 1}, {0x04, 0}, {0x04, 0}})}; }},
      {"long boolean",
       [](Parts* p) { p->extensions = {Extension(14, {}, {0x01, 2, 0xff, 0xff})}; }},
      {"two lists of extensions",
       [](Parts* p) { p->after_extensions = WrapDer(0xa3, Join({{0x30, 0}, {0x30, 0}})); }},
      {"something after the extensions", [](Parts* p) { p->after_extensions = kNull; }},
      {"broken signature", [](Parts* p) { p->signature.clear(); }},
      {"something after the signature", [](Parts* p) { p->after_signature = kNull; }},
  };
  for (const auto& [name, change] : changes) EXPECT_FALSE(ReadChanged(change)) << name;
}

TEST(CertificateTest, KeyThatCannotBeUsedHasNoType) {
  const Bytes point = Join({{4}, Bytes(64, 1)});
  const std::vector<std::pair<std::string, Change>> changes = {
      {"unknown algorithm", [](Parts* p) { p->key_algorithm[0] = {0x06, 1, 1}; }},
      {"RSA for PSS alone", [](Parts* p) { p->key_algorithm[0].back() = 10; }},
      {"RSA with parameters", [](Parts* p) { p->key_algorithm[1] = kP256; }},
      {"NULL with a content", [](Parts* p) { p->key_algorithm[1] = {0x05, 1, 0}; }},
      {"unused bits", [](Parts* p) { p->key[0] = 1; }},
      {"no numbers", [](Parts* p) { p->key = {0}; }},
      {"one number", [](Parts* p) { p->key = {0, 0x30, 3, 0x02, 1, 15}; }},
      {"three numbers",
       [](Parts* p) { p->key = {0, 0x30, 9, 0x02, 1, 15, 0x02, 1, 3, 0x02, 1, 1}; }},
      {"something after the numbers", [](Parts* p) { p->key.push_back(0); }},
      {"negative modulus", [](Parts* p) { p->key[5] = 0x8f; }},
      {"modulus zero", [](Parts* p) { p->key[5] = 0; }},
      {"exponent zero", [](Parts* p) { p->key[8] = 0; }},
      {"padded modulus", [](Parts* p) { p->key = {0, 0x30, 7, 0x02, 2, 0, 15, 0x02, 1, 3}; }},
      {"no curve", Ec({}, point)},
      {"implied curve", Ec({kNull}, point)},
      {"curve spelt out", Ec({Sequence({kP256})}, point)},
      {"unknown curve", Ec({{0x06, 2, 0x2a, 3}}, point)},
      {"point of another curve", Ec({kP256}, Join({{4}, Bytes(96, 1)}))},
      {"point in the hybrid form", Ec({kP256}, Join({{6}, Bytes(64, 1)}))},
      {"compressed point", Ec({kP256}, Join({{2}, Bytes(32, 1)}))},
      {"point at infinity", Ec({kP256}, {0})},
  };
  for (const auto& [name, change] : changes) {
    const auto facts = ReadChanged(change);
    ASSERT_TRUE(facts) << name;
    EXPECT_FALSE(facts->key_type) << name;
    EXPECT_TRUE(facts->modulus.empty() && facts->public_exponent.empty()) << name;
    EXPECT_TRUE(facts->ec_parameters.empty() && facts->ec_point.empty()) << name;
  }
}

TEST(CertificateTest, ExtensionsTellAuthoritiesAndSignersOfCertificates) {
  const Bytes ca = Constraints({kTrue});
  const Bytes signing = Usage({2, 0x04});
  ExpectFlags("authority", {ca}, kAuthority);
  ExpectFlags("length of the path", {Constraints({kTrue, {0x02, 1, 0}})}, kAuthority);
  ExpectFlags("TRUE not as DER has it", {Constraints({{0x01, 1, 1}})}, kAuthority);
  ExpectFlags("FALSE", {Constraints({{0x01, 1, 0}})}, kNothing);
  ExpectFlags("empty constraints", {Constraints({})}, kNothing);
  ExpectFlags("more behind", {Extension(19, Join({Sequence({kTrue}), kNull}))}, kAuthority);
  ExpectFlags("signer", {signing}, kSigner);
  ExpectFlags("signer of revocations too", {Usage({1, 0x06})}, kSigner);
  ExpectFlags("decipherOnly beside it", {Usage({7, 0x04, 0x80})}, kSigner);
  ExpectFlags("a bit that does not count", {Usage({3, 0x04})}, kNothing);
  ExpectFlags("revocations alone", {Usage({1, 0x02})}, kNothing);
  ExpectFlags("no use", {Usage({0})}, kNothing);
  ExpectFlags("no use in a byte", {Usage({0, 0})}, kNothing);
  for (const int other : {0x08, 0x10, 0x20, 0x40, 0x80}) {
    const auto bits = static_cast<unsigned char>(0x04 | other);
    ExpectFlags("another use, " + std::to_string(other), {Usage({2, bits})}, kNothing);
  }
  ExpectFlags("signing authority", {ca, signing}, kSigningAuthority);
}

TEST(CertificateTest, ExtensionsThatAreThereTwiceOrBrokenTellNothing) {
  const Bytes ca = Constraints({kTrue});
  const Bytes signing = Usage({2, 0x04});
  ExpectFlags("constraints twice", {ca, ca}, kNothing);
  ExpectFlags("usage twice", {signing, signing}, kNothing);
  ExpectFlags("usage twice of an authority", {ca, signing, signing}, kAuthority);
  ExpectFlags("negative path", {Constraints({kTrue, {0x02, 1, 0xff}}), signing}, kAuthority);
  for (const auto& [name, constraints] : std::vector<std::pair<std::string, Bytes>>{
           {"empty boolean", Constraints({{0x01, 0}})},
           {"two booleans", Constraints({kTrue, kTrue})},
           {"empty path", Constraints({kTrue, {0x02, 0}})},
           {"padded path", Constraints({kTrue, {0x02, 2, 0, 1}})},
           {"more than a path", Constraints({kTrue, {0x02, 1, 0}, kNull})},
           {"constraints without a sequence", Extension(19, kTrue)},
           {"constraints of no bytes", Extension(19, {})},
           {"cut constraints", Extension(19, {0x30, 3, 0x01, 1})}}) {
    ExpectFlags(name, {constraints, signing}, kNothing);
  }
  for (const auto& [name, usage] :
       std::vector<std::pair<std::string, Bytes>>{{"empty usage", Usage({})},
                                                  {"eight unused bits", Usage({8, 0x04})},
                                                  {"boolean for a usage", Extension(15, kTrue)},
                                                  {"usage of no bytes", Extension(15, {})},
                                                  {"cut usage", Extension(15, {0x03, 2, 2})}}) {
    ExpectFlags(name, {ca, usage}, kAuthority);
  }
}

}  // namespace
}  // namespace kelvrin::encoding
