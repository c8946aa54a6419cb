#include "encoding/testing/certificate_comparison.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "encoding/der.h"

namespace kelvrin::encoding {
namespace {

template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

constexpr std::size_t kMaxSize = std::size_t{1} << 20;

// Leaves the program's queue of OpenSSL errors as it was.
class QuietErrors {
 public:
  QuietErrors() { ERR_set_mark(); }
  ~QuietErrors() { ERR_pop_to_mark(); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
};

Bytes NameBytes(const X509_NAME* name) {
  const unsigned char* der = nullptr;
  std::size_t size = 0;
  if (X509_NAME_get0_der(name, &der, &size) != 1) return {};
  return {der, der + size};
}

Bytes NumberBytes(const EVP_PKEY* key, const char* name) {
  BIGNUM* read = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &read) != 1) return {};
  const Owned<BIGNUM> number(read, BN_free);
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
  BN_bn2bin(number.get(), bytes.data());
  return bytes;
}

void ReadRsaKey(const EVP_PKEY* key, CertificateFacts* facts) {
  Bytes modulus = NumberBytes(key, OSSL_PKEY_PARAM_RSA_N);
  Bytes public_exponent = NumberBytes(key, OSSL_PKEY_PARAM_RSA_E);
  if (modulus.empty() || public_exponent.empty()) return;
  facts->modulus = std::move(modulus);
  facts->public_exponent = std::move(public_exponent);
  facts->key_type = CKK_RSA;
}

// The DER of the object identifier that names the curve; empty where the certificate spells the
// curve out, be it one that OpenSSL knows by name.
Bytes CurveIdentifier(const EVP_PKEY* key) {
  int is_spelt_out = 1;
  if (EVP_PKEY_get_int_param(key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS, &is_spelt_out) !=
          1 ||
      is_spelt_out != 0) {
    return {};
  }
  std::array<char, 80> name = {};
  std::size_t size = 0;
  if (EVP_PKEY_get_group_name(key, name.data(), name.size(), &size) != 1) return {};
  const ASN1_OBJECT* const curve = OBJ_nid2obj(OBJ_txt2nid(name.data()));
  if (curve == nullptr || OBJ_length(curve) == 0) return {};
  const unsigned char* const bytes = OBJ_get0_data(curve);
  constexpr unsigned char kObjectIdentifier = 0x06;
  return WrapDer(kObjectIdentifier, {bytes, OBJ_length(curve)});
}

void ReadEcKey(EVP_PKEY* key, CertificateFacts* facts) {
  Bytes parameters = CurveIdentifier(key);
  if (parameters.empty()) return;
  EVP_PKEY_set_utf8_string_param(key, OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                 OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_UNCOMPRESSED);
  std::size_t size = 0;
  if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, nullptr, 0, &size) != 1) return;
  Bytes point(size);
  if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), size, &size) !=
      1) {
    return;
  }
  point.resize(size);
  // The point at infinity is no key, but an encoding of a point all the same.
  constexpr unsigned char kUncompressed = 4;
  if (point.empty() || point.front() != kUncompressed) return;
  facts->ec_parameters = std::move(parameters);
  facts->ec_point = std::move(point);
  facts->key_type = CKK_EC;
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

}  // namespace

std::optional<CertificateFacts> ReadCertificateWithOpenssl(ByteView der) {
  if (der.empty() || der.size() > kMaxSize) return std::nullopt;
  const QuietErrors quiet;
  const unsigned char* next = der.data();
  const Owned<X509> certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())), X509_free);
  if (certificate == nullptr || next != der.data() + der.size()) return std::nullopt;

  CertificateFacts facts;
  facts.subject = NameBytes(X509_get_subject_name(certificate.get()));
  facts.issuer = NameBytes(X509_get_issuer_name(certificate.get()));
  facts.is_ca = (X509_get_extension_flags(certificate.get()) & EXFLAG_CA) != 0;
  const std::uint32_t usage = X509_get_key_usage(certificate.get());
  constexpr std::uint32_t kOtherUses = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION |
                                       KU_KEY_ENCIPHERMENT | KU_DATA_ENCIPHERMENT |
                                       KU_KEY_AGREEMENT;
  facts.signs_certificates_only = (usage & KU_KEY_CERT_SIGN) != 0 && (usage & kOtherUses) == 0;
  // Owned by the certificate.
  EVP_PKEY* const key = X509_get0_pubkey(certificate.get());
  if (key == nullptr) return facts;
  if (EVP_PKEY_is_a(key, "RSA") == 1) ReadRsaKey(key, &facts);
  if (EVP_PKEY_is_a(key, "EC") == 1) ReadEcKey(key, &facts);
  return facts;
}

Comparison CompareWithOpenssl(const Bytes& der) {
  const auto ours = ReadCertificate(der);
  const auto read = ReadCertificateWithOpenssl(der);
  Comparison comparison;
  if (!ours || !read) return comparison;
  const auto expect = [&](bool is_same, const char* what) {
    if (!is_same)
      comparison.difference += std::string(comparison.difference.empty() ? "" : ", ") + what;
  };
  expect(ours->subject == read->subject, "subject");
  expect(ours->issuer == read->issuer, "issuer");
  expect(ours->is_ca == read->is_ca, "basicConstraints");
  expect(ours->signs_certificates_only == read->signs_certificates_only ||
             ours->signs_certificates_only == SignsCertificatesOnlyWithoutOtherExtensions(der),
         "keyUsage");
  comparison.has_key = ours->key_type.has_value();
  if (!comparison.has_key) return comparison;
  if (!read->key_type) {
    expect(ours->key_type == CKK_EC && IsOffCurve(*ours), "a key that OpenSSL does not read");
    return comparison;
  }
  expect(ours->key_type == read->key_type, "key type");
  expect(ours->modulus == read->modulus, "modulus");
  expect(ours->public_exponent == read->public_exponent, "public exponent");
  expect(ours->ec_parameters == read->ec_parameters, "curve");
  expect(ours->ec_point == read->ec_point, "point");
  return comparison;
}

}  // namespace kelvrin::encoding
