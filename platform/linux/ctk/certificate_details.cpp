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

// The text of a name's part; nothing when it is empty or no text.
std::optional<std::string> NameEntry(const X509_NAME* name, int index) {
  const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
  unsigned char* text = nullptr;
  const int length = ASN1_STRING_to_UTF8(&text, value);
  const BytesPointer owner(text);
  if (length <= 0) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
}

// The OID of a name's part, in digits and dots.
std::string NameOid(const X509_NAME* name, int index) {
  const ASN1_OBJECT* oid = X509_NAME_ENTRY_get_object(X509_NAME_get_entry(name, index));
  std::string text(static_cast<size_t>(OBJ_obj2txt(nullptr, 0, oid, 1)), '\0');
  OBJ_obj2txt(text.data(), static_cast<int>(text.size()) + 1, oid, 1);
  return text;
}

// Seconds from the beginning of 2001 to a time; nothing when it cannot be read.
std::optional<double> SecondsSince2001(const ASN1_TIME* time) {
  const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> epoch(ASN1_TIME_new(),
                                                                    ASN1_TIME_free);
  ASN1_TIME_set_string(epoch.get(), "20010101000000Z");
  int days = 0;
  int seconds = 0;
  if (ASN1_TIME_diff(&days, &seconds, epoch.get(), time) != 1) return std::nullopt;
  return days * 86400.0 + seconds;
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
    const int index = X509_NAME_get_index_by_NID(subject, nid, -1);
    if (index < 0) continue;
    if (std::optional<std::string> text = NameEntry(subject, index)) return text;
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

Bytes SerialNumber(const uint8_t* der, size_t size) {
  const X509Pointer x509 = Parse(der, size);
  unsigned char* encoded = nullptr;
  const int length = i2d_ASN1_INTEGER(X509_get0_serialNumber(x509.get()), &encoded);
  const BytesPointer owner(encoded);
  const unsigned char* contents = encoded;
  long contents_length = 0;
  int tag = 0;
  int tag_class = 0;
  ASN1_get_object(&contents, &contents_length, &tag, &tag_class, length);
  return {contents, contents + contents_length};
}

std::optional<Values> ValuesOf(const uint8_t* der, size_t size) {
  const X509Pointer x509 = Parse(der, size);
  const std::optional<double> not_before = SecondsSince2001(X509_get0_notBefore(x509.get()));
  const std::optional<double> not_after = SecondsSince2001(X509_get0_notAfter(x509.get()));
  if (!not_before || !not_after) return std::nullopt;
  Values values = {*not_before, *not_after, {}};
  const X509_NAME* issuer = X509_get_issuer_name(x509.get());
  for (int index = 0; index < X509_NAME_entry_count(issuer); ++index) {
    const std::optional<std::string> text = NameEntry(issuer, index);
    if (text) values.issuer.emplace_back(NameOid(issuer, index), *text);
  }
  return values;
}

}  // namespace certificate
