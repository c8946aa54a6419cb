#include "platform/linux/ctk/certificate_details.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

namespace certificate {
namespace {

using X509Pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using KeyPointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
struct OpensslFree {
  void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};
using BytesPointer = std::unique_ptr<unsigned char, OpensslFree>;

// Null unless the bytes are one certificate and encoded as DER writes it.
X509Pointer Parse(const uint8_t* der, size_t size) {
  X509Pointer x509(nullptr, X509_free);
  if (der == nullptr || size > INT32_MAX) return x509;
  const unsigned char* end = der;
  x509.reset(d2i_X509(nullptr, &end, static_cast<long>(size)));
  ERR_clear_error();
  if (x509 == nullptr || end != der + size) return {nullptr, X509_free};
  unsigned char* encoded = nullptr;
  const int length = i2d_X509(x509.get(), &encoded);
  const BytesPointer owner(encoded);
  const bool same =
      length >= 0 && static_cast<size_t>(length) == size && memcmp(encoded, der, size) == 0;
  return same ? std::move(x509) : X509Pointer(nullptr, X509_free);
}

std::optional<std::string> NameEntry(const X509_NAME* name, int nid) {
  const int index = X509_NAME_get_index_by_NID(name, nid, -1);
  if (index < 0) return std::nullopt;
  const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
  unsigned char* text = nullptr;
  const int length = ASN1_STRING_to_UTF8(&text, value);
  const BytesPointer owner(text);
  if (length <= 0) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
}

std::optional<KeyType> KeyTypeOf(const EVP_PKEY* key) {
  switch (EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
      return KeyType::kRsa;
    case EVP_PKEY_EC:
      return KeyType::kEllipticCurve;
    default:
      return std::nullopt;
  }
}

}  // namespace

bool IsCertificate(const uint8_t* der, size_t size) { return Parse(der, size) != nullptr; }

std::optional<std::string> SubjectSummary(const uint8_t* der, size_t size) {
  const X509Pointer x509 = Parse(der, size);
  if (x509 == nullptr) return std::nullopt;
  const X509_NAME* subject = X509_get_subject_name(x509.get());
  for (const int nid :
       {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress}) {
    if (std::optional<std::string> text = NameEntry(subject, nid)) return text;
  }
  return std::nullopt;
}

std::optional<PublicKey> PublicKeyOf(const uint8_t* der, size_t size) {
  const X509Pointer x509 = Parse(der, size);
  if (x509 == nullptr) return std::nullopt;
  const KeyPointer key(X509_get_pubkey(x509.get()), EVP_PKEY_free);
  ERR_clear_error();
  const std::optional<KeyType> type = key ? KeyTypeOf(key.get()) : std::nullopt;
  if (!type) return std::nullopt;
  if (*type == KeyType::kEllipticCurve) {
    EVP_PKEY_set_utf8_string_param(key.get(), OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                   OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_UNCOMPRESSED);
  }
  unsigned char* encoded = nullptr;
  const int length = i2d_PublicKey(key.get(), &encoded);
  const BytesPointer owner(encoded);
  if (length <= 0) return std::nullopt;
  PublicKey result = {*type, EVP_PKEY_get_bits(key.get()), Bytes(encoded, encoded + length),
                      Bytes(SHA_DIGEST_LENGTH)};
  SHA1(result.data.data(), result.data.size(), result.hash.data());
  return result;
}

}  // namespace certificate
