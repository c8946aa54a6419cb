#include "modulecheck/objects.h"

#include <algorithm>
#include <cstring>

#include "modulecheck/curves.h"
#include "modulecheck/rsa_public.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMaxObjects = 1000;
constexpr CK_ULONG kMaxValue = CK_ULONG{64} * 1024;
constexpr CK_ULONG kMaxMechanisms = 4096;

Bytes ReadOrEmpty(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                  CK_ATTRIBUTE_TYPE type) {
  return ReadBytes(module, session, object, type).value_or(Bytes());
}

Key ReadKey(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
            CK_OBJECT_HANDLE handle) {
  Key key;
  key.handle = handle;
  key.object_class = object_class;
  key.type = ReadNumber(module, session, handle, CKA_KEY_TYPE).value_or(key.type);
  key.id = ReadOrEmpty(module, session, handle, CKA_ID);
  key.label = ReadOrEmpty(module, session, handle, CKA_LABEL);
  if (key.type == CKK_RSA) {
    key.modulus = ReadOrEmpty(module, session, handle, CKA_MODULUS);
    key.exponent = ReadOrEmpty(module, session, handle, CKA_PUBLIC_EXPONENT);
  } else if (key.type == CKK_EC) {
    key.ec_params = ReadOrEmpty(module, session, handle, CKA_EC_PARAMS);
    if (object_class == CKO_PUBLIC_KEY) {
      key.ec_point = ReadOrEmpty(module, session, handle, CKA_EC_POINT);
    }
  }
  return key;
}

std::vector<Key> ReadAll(const Module& module, CK_SESSION_HANDLE session,
                         CK_OBJECT_CLASS object_class, const Handles& handles) {
  std::vector<Key> keys;
  keys.reserve(handles.size());
  for (const CK_OBJECT_HANDLE handle : handles) {
    keys.push_back(ReadKey(module, session, object_class, handle));
  }
  return keys;
}

}  // namespace

Handles FindAll(const Module& module, CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> wanted) {
  CK_FUNCTION_LIST* const p11 = module.p11();
  CK_RV result = p11->C_FindObjectsInit(session, wanted.data(), wanted.size());
  if (result != CKR_OK) throw CallFailed{"C_FindObjectsInit", result};
  Handles all;
  CK_ULONG count = 0;
  do {
    CK_OBJECT_HANDLE found[20] = {};
    count = 0;
    result = p11->C_FindObjects(session, found, std::size(found), &count);
    count = std::min<CK_ULONG>(count, std::size(found));
    if (result == CKR_OK) all.insert(all.end(), found, found + count);
  } while (result == CKR_OK && count != 0 && all.size() < kMaxObjects);
  p11->C_FindObjectsFinal(session);
  if (result != CKR_OK) throw CallFailed{"C_FindObjects", result};
  return all;
}

Handles FindClass(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}};
  return FindAll(module, session, wanted);
}

Handles FindId(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
               const Bytes& id) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                           {CKA_ID, const_cast<CK_BYTE*>(id.data()), id.size()}};
  return FindAll(module, session, wanted);
}

std::optional<Bytes> ReadBytes(const Module& module, CK_SESSION_HANDLE session,
                               CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ATTRIBUTE attribute = {type, nullptr, 0};
  CK_RV result = module.p11()->C_GetAttributeValue(session, object, &attribute, 1);
  if (result != CKR_OK || attribute.ulValueLen > kMaxValue) return std::nullopt;
  Bytes value(attribute.ulValueLen);
  // Some modules take a null pointer for a question, whatever the length.
  CK_BYTE nothing = 0;
  attribute.pValue = value.empty() ? &nothing : value.data();
  result = module.p11()->C_GetAttributeValue(session, object, &attribute, 1);
  if (result != CKR_OK || attribute.ulValueLen > value.size()) return std::nullopt;
  value.resize(attribute.ulValueLen);
  return value;
}

std::optional<CK_ULONG> ReadNumber(const Module& module, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ULONG number = 0;
  // Some modules want exactly this much room.
  CK_ATTRIBUTE attribute = {type, &number, sizeof(number)};
  const CK_RV result = module.p11()->C_GetAttributeValue(session, object, &attribute, 1);
  if (result != CKR_OK || attribute.ulValueLen != sizeof(number)) return std::nullopt;
  return number;
}

bool ReadFlag(const Module& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
              CK_ATTRIBUTE_TYPE type) {
  CK_BBOOL flag = CK_FALSE;
  CK_ATTRIBUTE attribute = {type, &flag, sizeof(flag)};
  const CK_RV result = module.p11()->C_GetAttributeValue(session, object, &attribute, 1);
  return result == CKR_OK && attribute.ulValueLen == sizeof(flag) && flag == CK_TRUE;
}

std::vector<Certificate> ReadCertificates(const Module& module, CK_SESSION_HANDLE session) {
  std::vector<Certificate> certificates;
  for (const CK_OBJECT_HANDLE handle : FindClass(module, session, CKO_CERTIFICATE)) {
    certificates.push_back({handle, ReadOrEmpty(module, session, handle, CKA_ID),
                            ReadOrEmpty(module, session, handle, CKA_LABEL),
                            ReadOrEmpty(module, session, handle, CKA_VALUE)});
  }
  return certificates;
}

std::vector<Key> ReadKeys(const Module& module, CK_SESSION_HANDLE session,
                          CK_OBJECT_CLASS object_class) {
  return ReadAll(module, session, object_class, FindClass(module, session, object_class));
}

std::vector<Key> ReadKeysById(const Module& module, CK_SESSION_HANDLE session,
                              CK_OBJECT_CLASS object_class, const Bytes& id) {
  return ReadAll(module, session, object_class, FindId(module, session, object_class, id));
}

std::string TypeText(const Key& key) {
  if (key.type == CKK_RSA) {
    const std::size_t size = ModulusSize({key.modulus, key.exponent});
    return size == 0 ? "RSA" : "RSA-" + std::to_string(8 * size);
  }
  if (key.type == CKK_EC) {
    const Curve* const curve = FindCurve(key.ec_params);
    return curve == nullptr ? "EC" : "EC " + std::string(curve->name);
  }
  return "of another type";
}

std::string NameOf(const Bytes& label, const Bytes& id) {
  const std::string name = Printable({reinterpret_cast<const char*>(label.data()), label.size()});
  return "\"" + name + "\" (CKA_ID " + (id.empty() ? "empty" : Hex(id)) + ")";
}

std::vector<CK_MECHANISM_TYPE> SlotMechanisms(const Module& module) {
  CK_ULONG count = 0;
  CK_RV result = module.p11()->C_GetMechanismList(module.slot(), nullptr, &count);
  if (result != CKR_OK || count == 0 || count > kMaxMechanisms) return {};
  std::vector<CK_MECHANISM_TYPE> list(count);
  result = module.p11()->C_GetMechanismList(module.slot(), list.data(), &count);
  if (result != CKR_OK || count > list.size()) return {};
  list.resize(count);
  return list;
}

bool Offers(const Module& module, CK_MECHANISM_TYPE mechanism) {
  const std::vector<CK_MECHANISM_TYPE> list = SlotMechanisms(module);
  return std::find(list.begin(), list.end(), mechanism) != list.end();
}

}  // namespace kelvrin::modulecheck
