#include "encoding/testing/certificates.h"

#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>
#include <stdexcept>

namespace kelvrin::encoding {
namespace {

template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

void SetName(X509_NAME* name, const NameFields& fields) {
  for (const auto& [field, text] : fields) {
    Require(X509_NAME_add_entry_by_txt(name, field.c_str(), MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                       0) == 1,
            "name");
  }
}

EVP_PKEY* MakeKey(const std::string& kind) {
  if (kind == "RSA") return EVP_RSA_gen(2048);
  if (kind == "ED25519") return EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
  return EVP_EC_gen(kind.c_str());
}

}  // namespace

Bytes MakeCertificate(const CertificateWish& wish) {
  const Owned<EVP_PKEY> key(MakeKey(wish.key), EVP_PKEY_free);
  Require(key != nullptr, "key");
  return MakeCertificateOf(key.get(), wish);
}

Bytes MakeCertificateOf(EVP_PKEY* key, const CertificateWish& wish) {
  const Owned<X509> certificate(X509_new(), X509_free);
  X509_set_version(certificate.get(), wish.version == 1 ? X509_VERSION_1 : X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  std::time_t now = std::time(nullptr);
  X509_time_adj(X509_getm_notBefore(certificate.get()), 0, &now);
  X509_time_adj(X509_getm_notAfter(certificate.get()), 86400, &now);
  SetName(X509_get_subject_name(certificate.get()),
          wish.subject_fields.value_or(NameFields{{"CN", wish.subject}}));
  SetName(X509_get_issuer_name(certificate.get()), {{"CN", wish.issuer}});
  Require(X509_set_pubkey(certificate.get(), key) == 1, "public key");
  for (const auto& [name, value] : wish.extensions) {
    const Owned<X509_EXTENSION> extension(
        X509V3_EXT_conf(nullptr, nullptr, name.c_str(), value.c_str()), X509_EXTENSION_free);
    Require(extension != nullptr, "extension");
    X509_add_ext(certificate.get(), extension.get(), -1);
  }
  const EVP_MD* const digest = EVP_PKEY_is_a(key, "ED25519") == 1 ? nullptr : EVP_sha256();
  Require(X509_sign(certificate.get(), key, digest) > 0, "signature");
  unsigned char* der = nullptr;
  const int size = i2d_X509(certificate.get(), &der);
  Require(size > 0, "encoding");
  Bytes bytes(der, der + size);
  OPENSSL_free(der);
  return bytes;
}

}  // namespace kelvrin::encoding
