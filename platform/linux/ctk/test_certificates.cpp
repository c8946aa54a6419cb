#include "platform/linux/ctk/test_certificates.h"

#include <openssl/core_names.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace test_certificates {
namespace {

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

std::shared_ptr<EVP_PKEY> MakeKey(KeyKind kind) {
  EVP_PKEY* key = nullptr;
  switch (kind) {
    case KeyKind::kRsa2048:
      key = EVP_RSA_gen(2048);
      break;
    case KeyKind::kP256:
    case KeyKind::kP256Compressed:
      key = EVP_EC_gen("P-256");
      break;
    case KeyKind::kP521:
      key = EVP_EC_gen("P-521");
      break;
    case KeyKind::kEd25519:
      key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
      break;
  }
  Require(key != nullptr, "key generation");
  std::shared_ptr<EVP_PKEY> owner(key, EVP_PKEY_free);
  if (kind == KeyKind::kP256Compressed) {
    Require(EVP_PKEY_set_utf8_string_param(key, OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                           OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_COMPRESSED) == 1,
            "point format");
  }
  return owner;
}

}  // namespace

Certificate Make(KeyKind kind, const Subject& subject) {
  Certificate result = {{}, MakeKey(kind)};
  const std::unique_ptr<X509, decltype(&X509_free)> x509(X509_new(), X509_free);
  Require(x509 != nullptr, "certificate");
  X509_set_version(x509.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(x509.get()), 3600);
  X509_NAME* name = X509_get_subject_name(x509.get());
  for (const auto& [field, text] : subject) {
    Require(X509_NAME_add_entry_by_txt(name, field.c_str(), MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                       0) == 1,
            "subject");
  }
  X509_set_issuer_name(x509.get(), name);
  Require(X509_set_pubkey(x509.get(), result.key.get()) == 1, "public key");
  const EVP_MD* digest = kind == KeyKind::kEd25519 ? nullptr : EVP_sha256();
  Require(X509_sign(x509.get(), result.key.get(), digest) > 0, "signature");
  unsigned char* der = nullptr;
  const int size = i2d_X509(x509.get(), &der);
  Require(size > 0, "encoding");
  result.der.assign(der, der + size);
  OPENSSL_free(der);
  return result;
}

}  // namespace test_certificates
