#include "adapter/testing/fault_module_token.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace kelvrin::adapter::fault_module {
namespace {

template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;
using Key = std::shared_ptr<EVP_PKEY>;
using Extensions = std::vector<std::pair<const char*, std::string>>;

constexpr CK_BYTE kRsaId = 1;
constexpr CK_BYTE kEcId = 2;
constexpr CK_BYTE kOtherId = 3;
// Of the certificates of other people.
constexpr CK_BYTE kFirstStrangerId = 0x10;
constexpr int kStrangers = 20;
constexpr std::size_t kOversize = 5000;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

Bytes NumberOf(EVP_PKEY* key, const char* name) {
  BIGNUM* read = nullptr;
  Require(EVP_PKEY_get_bn_param(key, name, &read) == 1, name);
  const Owned<BIGNUM> number(read, BN_free);
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
  BN_bn2bin(number.get(), bytes.data());
  return bytes;
}

Bytes DerPointOf(EVP_PKEY* key) {
  Bytes point(65);
  std::size_t size = 0;
  Require(EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                          &size) == 1 &&
              size == point.size(),
          "point");
  point.insert(point.begin(), {0x04, 65});
  return point;
}

Bytes Certificate(EVP_PKEY* key, const std::string& name, const Extensions& extensions = {}) {
  const Owned<X509> certificate(X509_new(), X509_free);
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400);
  X509_NAME* const subject = X509_get_subject_name(certificate.get());
  Require(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                                     0) == 1,
          "name");
  X509_set_issuer_name(certificate.get(), subject);
  Require(X509_set_pubkey(certificate.get(), key) == 1, "public key");
  for (const auto& [type, value] : extensions) {
    const Owned<X509_EXTENSION> extension(X509V3_EXT_conf(nullptr, nullptr, type, value.c_str()),
                                          X509_EXTENSION_free);
    Require(extension != nullptr, "extension");
    X509_add_ext(certificate.get(), extension.get(), -1);
  }
  Require(X509_sign(certificate.get(), key, EVP_sha256()) > 0, "signature");
  unsigned char* der = nullptr;
  const int size = i2d_X509(certificate.get(), &der);
  Require(size > 0, "certificate");
  Bytes bytes(der, der + size);
  OPENSSL_free(der);
  return bytes;
}

Object CertificateObject(CK_BYTE id, const std::string& label, const Bytes& der) {
  return {.attributes = {{CKA_CLASS, Number(CKO_CERTIFICATE)},
                         {CKA_CERTIFICATE_TYPE, Number(CKC_X_509)},
                         {CKA_TOKEN, Flag(true)},
                         {CKA_PRIVATE, Flag(false)},
                         {CKA_LABEL, Text(label)},
                         {CKA_ID, {id}},
                         {CKA_VALUE, der}},
          .key = nullptr};
}

// What private and public key have in common.
std::map<CK_ATTRIBUTE_TYPE, Bytes> KeyAttributes(EVP_PKEY* key, CK_BYTE id) {
  if (id == kRsaId) {
    return {{CKA_KEY_TYPE, Number(CKK_RSA)},
            {CKA_ID, {id}},
            {CKA_MODULUS, NumberOf(key, OSSL_PKEY_PARAM_RSA_N)},
            {CKA_PUBLIC_EXPONENT, NumberOf(key, OSSL_PKEY_PARAM_RSA_E)}};
  }
  return {{CKA_KEY_TYPE, Number(CKK_EC)},
          {CKA_ID, {id}},
          {CKA_EC_PARAMS, {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07}}};
}

// CKA_ALLOWED_MECHANISMS of a key; nothing when it has none.
void AddMechanisms(Fault fault, bool is_rsa, Object* key) {
  std::vector<CK_MECHANISM_TYPE> list;
  if (is_rsa) {
    list = {CKM_RSA_PKCS};
    if (fault != Fault::kNoRawRsa) list.push_back(CKM_RSA_X_509);
  } else {
    list = {CKM_ECDSA, CKM_ECDH1_DERIVE};
    if (fault != Fault::kNoEcdsaSha1) list.push_back(CKM_ECDSA_SHA1);
  }
  if (fault == Fault::kNoMechanismList) return;
  if (fault == Fault::kEmptyMechanismList) list.clear();
  for (CK_ULONG i = 0; fault == Fault::kLongMechanismList && i < 20; ++i) {
    list.push_back(CKM_VENDOR_DEFINED | i);
  }
  Bytes& bytes = key->attributes[CKA_ALLOWED_MECHANISMS];
  bytes.resize(list.size() * sizeof(CK_MECHANISM_TYPE));
  if (!list.empty()) std::memcpy(bytes.data(), list.data(), bytes.size());
}

Object PublicKey(Fault fault, EVP_PKEY* key, CK_BYTE id) {
  const bool is_rsa = id == kRsaId;
  const bool encrypts = is_rsa || fault == Fault::kEcKeysEncryptAndWrap;
  const bool has_umlaut = fault == Fault::kUmlautInPublicKeyLabel;
  const char* const label = has_umlaut ? "Schl\xc3\xbcssel" : "Public key";
  Object object = {.attributes = KeyAttributes(key, id), .key = nullptr};
  object.attributes.insert({{CKA_CLASS, Number(CKO_PUBLIC_KEY)},
                            {CKA_PRIVATE, Flag(false)},
                            {CKA_LABEL, Text(label)},
                            {CKA_VERIFY, Flag(true)},
                            {CKA_ENCRYPT, Flag(encrypts)},
                            {CKA_WRAP, Flag(encrypts)},
                            {CKA_DERIVE, Flag(!is_rsa && fault != Fault::kEcKeysDoNotDerive)}});
  if (!is_rsa) object.attributes[CKA_EC_POINT] = DerPointOf(key);
  AddMechanisms(fault, is_rsa, &object);
  return object;
}

Object PrivateKey(Fault fault, const Key& key, CK_BYTE id) {
  const bool is_rsa = id == kRsaId;
  Object object = {.attributes = KeyAttributes(key.get(), id), .key = key, .is_private = true};
  object.attributes.insert({{CKA_CLASS, Number(CKO_PRIVATE_KEY)},
                            {CKA_PRIVATE, Flag(true)},
                            {CKA_LABEL, Text("Private key")},
                            {CKA_SENSITIVE, Flag(true)},
                            {CKA_SIGN, Flag(true)},
                            {CKA_DECRYPT, Flag(is_rsa)},
                            {CKA_DERIVE, Flag(!is_rsa)},
                            {CKA_ALWAYS_AUTHENTICATE, Flag(fault == Fault::kKeysWantLogin)}});
  if (is_rsa) {
    object.attributes[CKA_PRIVATE_EXPONENT] = NumberOf(key.get(), OSSL_PKEY_PARAM_RSA_D);
  } else {
    object.attributes[CKA_VALUE] = NumberOf(key.get(), OSSL_PKEY_PARAM_PRIV_KEY);
  }
  AddMechanisms(fault, is_rsa, &object);
  return object;
}

}  // namespace

Bytes Number(CK_ULONG value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

Bytes Flag(bool value) { return {static_cast<CK_BYTE>(value ? CK_TRUE : CK_FALSE)}; }

std::vector<Object> MakeObjects(Fault fault) {
  std::vector<Object> objects;
  const auto add_certificate = [&](CK_BYTE id, const std::string& label, EVP_PKEY* key,
                                   const Extensions& extensions) {
    objects.push_back(CertificateObject(id, label, Certificate(key, label, extensions)));
  };
  const Key stranger(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const Key rsa(EVP_RSA_gen(2048), EVP_PKEY_free);
  const Key ec(EVP_EC_gen("P-256"), EVP_PKEY_free);
  Require(stranger != nullptr && rsa != nullptr && ec != nullptr, "keys");

  for (int i = 0; fault == Fault::kManyCertificatesOfOthers && i < kStrangers; ++i) {
    add_certificate(static_cast<CK_BYTE>(kFirstStrangerId + i), "Stranger", stranger.get(), {});
  }
  const bool has_umlaut = fault == Fault::kUmlautInCertificateLabel;
  add_certificate(kRsaId, has_umlaut ? "Schl\xc3\xbcssel" : "Key", rsa.get(), {});
  add_certificate(kEcId, "Other key", ec.get(), {});
  if (fault == Fault::kOversizeCertificate) {
    add_certificate(kOtherId, "Long", stranger.get(), {{"nsComment", std::string(kOversize, 'x')}});
  }
  if (fault == Fault::kCertificateOfAnAuthority) {
    add_certificate(
        kOtherId, "Authority", stranger.get(),
        {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "critical,keyCertSign,cRLSign"}});
  }
  for (const auto& [id, key] : {std::pair(kRsaId, rsa), std::pair(kEcId, ec)}) {
    if (fault != Fault::kNoPublicKeys) objects.push_back(PublicKey(fault, key.get(), id));
    objects.push_back(PrivateKey(fault, key, id));
  }
  return objects;
}

}  // namespace kelvrin::adapter::fault_module
