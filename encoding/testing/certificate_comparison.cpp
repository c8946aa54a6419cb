#include "encoding/testing/certificate_comparison.h"

#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <memory>

#include "encoding/certificate.h"
#include "encoding/testing/openssl_certificate.h"

namespace kelvrin::encoding {
namespace {

template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

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
