#include "token/testing/test_certificates.h"

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <memory>
#include <utility>

namespace token_testing {
namespace {

void Require(bool done, const char* what) {
  if (done) return;
  fprintf(stderr, "test certificate: %s failed\n", what);
  abort();
}

EVP_PKEY* MakeKey(KeyKind kind) {
  EVP_PKEY* key = nullptr;
  switch (kind) {
    case KeyKind::kRsa:
      key = EVP_RSA_gen(2048);
      break;
    case KeyKind::kEllipticCurve:
      key = EVP_EC_gen("P-256");
      break;
    case KeyKind::kEd25519:
      key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
      break;
  }
  Require(key != nullptr, "making a key");
  return key;
}

// The process's key of a kind.
EVP_PKEY* Key(KeyKind kind) {
  static auto& keys = *new std::map<KeyKind, EVP_PKEY*>;
  EVP_PKEY*& key = keys[kind];
  if (key == nullptr) key = MakeKey(kind);
  return key;
}

scripted::Bytes MakeCertificate(KeyKind kind, const std::string& common_name) {
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  Require(certificate != nullptr, "X509_new");
  X509* x509 = certificate.get();
  EVP_PKEY* key = Key(kind);
  X509_NAME* name = X509_get_subject_name(x509);
  Require(X509_set_version(x509, X509_VERSION_3) == 1, "X509_set_version");
  Require(ASN1_INTEGER_set(X509_get_serialNumber(x509), 1) == 1, "ASN1_INTEGER_set");
  Require(X509_gmtime_adj(X509_getm_notBefore(x509), 0) != nullptr, "notBefore");
  Require(X509_gmtime_adj(X509_getm_notAfter(x509), 86400) != nullptr, "notAfter");
  Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(common_name.data()),
                                     static_cast<int>(common_name.size()), -1, 0) == 1,
          "X509_NAME_add_entry_by_txt");
  Require(X509_set_issuer_name(x509, name) == 1, "X509_set_issuer_name");
  Require(X509_set_pubkey(x509, key) == 1, "X509_set_pubkey");
  const EVP_MD* digest = kind == KeyKind::kEd25519 ? nullptr : EVP_sha256();
  Require(X509_sign(x509, key, digest) > 0, "X509_sign");
  const int size = i2d_X509(x509, nullptr);
  Require(size > 0, "i2d_X509");
  scripted::Bytes der(static_cast<size_t>(size));
  unsigned char* end = der.data();
  Require(i2d_X509(x509, &end) == size, "i2d_X509");
  return der;
}

}  // namespace

const scripted::Bytes& CertificateDer(KeyKind kind, const std::string& common_name) {
  static auto& certificates = *new std::map<std::pair<KeyKind, std::string>, scripted::Bytes>;
  scripted::Bytes& der = certificates[{kind, common_name}];
  if (der.empty()) der = MakeCertificate(kind, common_name);
  return der;
}

}  // namespace token_testing
