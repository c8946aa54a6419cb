// Cards and what is on them.
#include <openssl/core_names.h>

#include <cstring>

#include "encoding/testing/certificates.h"
#include "tests/module/memory_module.h"
#include "tests/module/test_keys.h"

namespace kelvrin {
namespace {

using Bytes = MemoryObject::Bytes;

bool IsRsa(EVP_PKEY* key) { return EVP_PKEY_is_a(key, "RSA") == 1; }

// CKA_ALLOWED_MECHANISMS: those of the card that fit the key.
Bytes MechanismsFor(const MemoryCard& card, bool is_rsa) {
  Bytes list;
  for (const CK_MECHANISM_TYPE mechanism : card.mechanisms) {
    const bool wants_rsa = mechanism == CKM_RSA_PKCS || mechanism == CKM_RSA_X_509;
    const Bytes number = MemoryObject::Number(mechanism);
    if (wants_rsa == is_rsa) list.insert(list.end(), number.begin(), number.end());
  }
  return list;
}

// What private and public key have in common.
MemoryObject KeyObject(const MemoryCard& card, CK_OBJECT_CLASS object_class, EVP_PKEY* key,
                       const Bytes& id, const std::string& label) {
  const bool is_rsa = IsRsa(key);
  MemoryObject object;
  object.attributes = {{CKA_CLASS, MemoryObject::Number(object_class)},
                       {CKA_KEY_TYPE, MemoryObject::Number(is_rsa ? CKK_RSA : CKK_EC)},
                       {CKA_TOKEN, MemoryObject::Flag(true)},
                       {CKA_PRIVATE, MemoryObject::Flag(object_class == CKO_PRIVATE_KEY)},
                       {CKA_LABEL, MemoryObject::Text(label)},
                       {CKA_ID, id},
                       {CKA_ALLOWED_MECHANISMS, MechanismsFor(card, is_rsa)}};
  if (is_rsa) {
    object.attributes[CKA_MODULUS] = NumberOfKey(key, OSSL_PKEY_PARAM_RSA_N);
    object.attributes[CKA_PUBLIC_EXPONENT] = NumberOfKey(key, OSSL_PKEY_PARAM_RSA_E);
  } else {
    object.attributes[CKA_EC_PARAMS] = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};
  }
  return object;
}

}  // namespace

Bytes MemoryObject::Number(CK_ULONG value) {
  Bytes bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

bool MemoryObject::Is(CK_ATTRIBUTE_TYPE type) const { return Has(type, Flag(true)); }

bool MemoryObject::Has(CK_ATTRIBUTE_TYPE type, const Bytes& value) const {
  const auto found = attributes.find(type);
  return found != attributes.end() && found->second == value;
}

MemoryCard::MemoryCard(MemoryModule& module, CK_SLOT_ID slot_id, const MemoryCardOptions& options)
    : slot(slot_id),
      label(options.label),
      serial(options.serial),
      pin(options.pin),
      module_(module) {}

MemoryKey MemoryCard::AddRsaKey(const Bytes& id, const MemoryKeyOptions& options) {
  return AddKey(TestRsaKey(module_.rsa_keys++), id, options);
}

MemoryKey MemoryCard::AddEcKey(const Bytes& id, const MemoryKeyOptions& options) {
  return AddKey(TestEcKey(module_.ec_keys++), id, options);
}

MemoryKey MemoryCard::AddKey(TestKey key, const Bytes& id, const MemoryKeyOptions& options) {
  const bool is_rsa = IsRsa(key.get());
  MemoryKey handles;
  if (options.certificate) {
    handles.certificate = AddCertificate(
        id, options.label,
        encoding::MakeCertificateOf(key.get(),
                                    {.subject = options.label, .extensions = options.extensions}));
  }
  if (options.public_key) {
    MemoryObject object = KeyObject(*this, CKO_PUBLIC_KEY, key.get(), id, options.label);
    object.attributes[CKA_VERIFY] = MemoryObject::Flag(true);
    object.attributes[CKA_ENCRYPT] = MemoryObject::Flag(is_rsa);
    object.attributes[CKA_WRAP] = MemoryObject::Flag(is_rsa);
    object.attributes[CKA_DERIVE] = MemoryObject::Flag(!is_rsa);
    if (!is_rsa) {
      Bytes point = PointOfKey(key.get());
      point.insert(point.begin(), {0x04, static_cast<CK_BYTE>(point.size())});
      object.attributes[CKA_EC_POINT] = point;
    }
    handles.public_key = Add(std::move(object));
  }
  MemoryObject object = KeyObject(*this, CKO_PRIVATE_KEY, key.get(), id, options.label);
  object.attributes[CKA_SENSITIVE] = MemoryObject::Flag(true);
  object.attributes[CKA_SIGN] = MemoryObject::Flag(true);
  object.attributes[CKA_DECRYPT] = MemoryObject::Flag(is_rsa);
  object.attributes[CKA_DERIVE] = MemoryObject::Flag(!is_rsa);
  object.attributes[CKA_ALWAYS_AUTHENTICATE] = MemoryObject::Flag(options.always_authenticate);
  object.attributes[is_rsa ? CKA_PRIVATE_EXPONENT : CKA_VALUE] =
      NumberOfKey(key.get(), is_rsa ? OSSL_PKEY_PARAM_RSA_D : OSSL_PKEY_PARAM_PRIV_KEY);
  object.key = std::move(key);
  handles.private_key = Add(std::move(object));
  return handles;
}

CK_OBJECT_HANDLE MemoryCard::AddCertificate(const Bytes& id, const std::string& name,
                                            const Bytes& der) {
  MemoryObject object;
  object.attributes = {{CKA_CLASS, MemoryObject::Number(CKO_CERTIFICATE)},
                       {CKA_CERTIFICATE_TYPE, MemoryObject::Number(CKC_X_509)},
                       {CKA_TOKEN, MemoryObject::Flag(true)},
                       {CKA_PRIVATE, MemoryObject::Flag(false)},
                       {CKA_LABEL, MemoryObject::Text(name)},
                       {CKA_ID, id},
                       {CKA_VALUE, der}};
  return Add(std::move(object));
}

CK_OBJECT_HANDLE MemoryCard::Add(MemoryObject object) {
  const CK_OBJECT_HANDLE handle = module_.next_object++;
  objects[handle] = std::move(object);
  return handle;
}

void MemoryCard::Rehandle(CK_OBJECT_HANDLE object, CK_OBJECT_HANDLE handle) {
  auto moved = objects.extract(object);
  moved.key() = handle;
  objects.insert(std::move(moved));
}

}  // namespace kelvrin
