#include "modulecheck/objects.h"

#include <algorithm>
#include <array>

#include "encoding/elliptic_curve.h"

namespace kelvrin::modulecheck {
namespace {

constexpr std::size_t kMaxObjects = 1000;
constexpr CK_ULONG kMaxValue = CK_ULONG{64} * 1024;
constexpr CK_ULONG kMaxMechanisms = 4096;
constexpr std::string_view kData =
    "modulecheck signs this text to try the module, and nothing else.";
static_assert(kData.size() == 64);

// An attribute's value; none when it cannot be read or has more than 64 KiB.
Bytes ReadBytes(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ATTRIBUTE attribute = {type, nullptr, 0};
  const auto read = [&] {
    return session.p11()->C_GetAttributeValue(session.handle(), object, &attribute, 1);
  };
  if (read() != CKR_OK || attribute.ulValueLen > kMaxValue) return {};
  Bytes value(attribute.ulValueLen);
  // Some modules take a null pointer for a question, whatever the length.
  CK_BYTE nothing = 0;
  attribute.pValue = value.empty() ? &nothing : value.data();
  if (read() != CKR_OK || attribute.ulValueLen > value.size()) return {};
  value.resize(attribute.ulValueLen);
  return value;
}

Object ReadObject(const Session& session, CK_OBJECT_HANDLE handle) {
  return {handle, ReadBytes(session, handle, CKA_ID), ReadBytes(session, handle, CKA_LABEL)};
}

CK_KEY_TYPE ReadKeyType(const Session& session, CK_OBJECT_HANDLE handle) {
  CK_KEY_TYPE type = CK_UNAVAILABLE_INFORMATION;
  // Some modules want exactly this much room.
  CK_ATTRIBUTE attribute = {CKA_KEY_TYPE, &type, sizeof(type)};
  const CK_RV result = session.p11()->C_GetAttributeValue(session.handle(), handle, &attribute, 1);
  const bool is_read = result == CKR_OK && attribute.ulValueLen == sizeof(type);
  return is_read ? type : CK_UNAVAILABLE_INFORMATION;
}

std::string TypeText(const Session& session, CK_OBJECT_HANDLE handle, CK_KEY_TYPE type) {
  std::size_t bits = 0;
  if (type == CKK_RSA) {
    const Bytes modulus = ReadBytes(session, handle, CKA_MODULUS);
    const auto first = std::ranges::find_if(modulus, [](CK_BYTE byte) { return byte != 0; });
    bits = 8 * static_cast<std::size_t>(modulus.end() - first);
    return bits == 0 ? "RSA" : "RSA-" + std::to_string(bits);
  }
  if (type != CKK_EC) return "of another type";
  bits = 8 * encoding::CurveSize(ReadBytes(session, handle, CKA_EC_PARAMS));
  // The one curve whose size is no whole number of bytes.
  if (bits == 528) bits = 521;
  return bits == 0 ? "EC" : "EC of " + std::to_string(bits) + " bits";
}

Key ReadKey(const Session& session, CK_OBJECT_HANDLE handle) {
  const CK_KEY_TYPE type = ReadKeyType(session, handle);
  return {ReadObject(session, handle), type, TypeText(session, handle, type)};
}

Handles FindClass(const Session& session, CK_OBJECT_CLASS object_class) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}};
  return FindAll(session, wanted);
}

Handles FindId(const Session& session, CK_OBJECT_CLASS object_class, const Bytes& id) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                           {CKA_ID, const_cast<CK_BYTE*>(id.data()), id.size()}};
  return FindAll(session, wanted);
}

// Says that a certificate has these keys, and adds those that were not listed.
void AddCertified(const Session& session, const Handles& handles, std::vector<Key>* keys) {
  for (const CK_OBJECT_HANDLE handle : handles) {
    auto key = std::ranges::find(*keys, handle, &Key::handle);
    if (key == keys->end()) key = keys->insert(key, ReadKey(session, handle));
    key->is_certified = true;
  }
}

using OperationCall = CK_RV (*)(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*);

// The second call of an operation.
OperationResult Finish(OperationCall function, const char* name, const Session& session,
                       ByteView data, CK_ULONG room) {
  // More than the module is told of: what it writes beyond does no harm.
  std::array<CK_BYTE, 4 * kRoom> buffer = {};
  CK_ULONG size = room;
  OperationResult result = {.call = name};
  result.result = function(session.handle(), const_cast<CK_BYTE*>(data.data()), data.size(),
                           buffer.data(), &size);
  if (result.result == CKR_OK) {
    result.output.assign(buffer.begin(), buffer.begin() + static_cast<long>(std::min(size, room)));
  }
  return result;
}

}  // namespace

Handles FindAll(const Session& session, std::span<CK_ATTRIBUTE> wanted) {
  CK_FUNCTION_LIST* const p11 = session.p11();
  CK_RV result = p11->C_FindObjectsInit(session.handle(), wanted.data(), wanted.size());
  if (result != CKR_OK) throw CallFailed{"C_FindObjectsInit", result};
  Handles all;
  CK_ULONG count = 0;
  do {
    CK_OBJECT_HANDLE found[20] = {};
    count = 0;
    result = p11->C_FindObjects(session.handle(), found, std::size(found), &count);
    count = std::min<CK_ULONG>(count, std::size(found));
    if (result == CKR_OK) all.insert(all.end(), found, found + count);
  } while (result == CKR_OK && count != 0 && all.size() < kMaxObjects);
  p11->C_FindObjectsFinal(session.handle());
  if (result != CKR_OK) throw CallFailed{"C_FindObjects", result};
  return all;
}

bool ReadFlag(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_BBOOL flag = CK_FALSE;
  CK_ATTRIBUTE attribute = {type, &flag, sizeof(flag)};
  const CK_RV result = session.p11()->C_GetAttributeValue(session.handle(), object, &attribute, 1);
  return result == CKR_OK && attribute.ulValueLen == sizeof(flag) && flag == CK_TRUE;
}

std::string NameOf(const Object& object) {
  return "\"" + Text(object.label) + "\" (CKA_ID " +
         (object.id.empty() ? "empty" : Hex(object.id)) + ")";
}

Contents::Contents(const Module& module) : session(module) {
  for (const CK_OBJECT_HANDLE handle : FindClass(session, CKO_CERTIFICATE)) {
    Certificate certificate = {
        ReadObject(session, handle), ReadBytes(session, handle, CKA_VALUE), {}, {}, {}};
    certificate.facts = encoding::ReadCertificate(certificate.der);
    certificates.push_back(std::move(certificate));
  }
  for (const CK_OBJECT_HANDLE handle : FindClass(session, CKO_PUBLIC_KEY)) {
    public_keys.push_back(ReadKey(session, handle));
  }
  for (const CK_OBJECT_HANDLE handle : FindClass(session, CKO_PRIVATE_KEY)) {
    private_keys.push_back(ReadKey(session, handle));
  }
  for (Certificate& certificate : certificates) {
    certificate.public_keys = FindId(session, CKO_PUBLIC_KEY, certificate.id);
    certificate.private_keys = FindId(session, CKO_PRIVATE_KEY, certificate.id);
    AddCertified(session, certificate.public_keys, &public_keys);
    AddCertified(session, certificate.private_keys, &private_keys);
  }
}

std::vector<Key> Contents::CertifiedPublicKeys(std::initializer_list<CK_KEY_TYPE> types) const {
  std::vector<Key> keys = public_keys;
  std::erase_if(keys, [&](const Key& key) {
    return !key.is_certified || std::ranges::find(types, key.type) == types.end();
  });
  return keys;
}

std::vector<Key> Contents::CertifiedKeys(CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) const {
  std::vector<Key> keys;
  for (const Certificate& certificate : certificates) {
    if (!certificate.facts || certificate.facts->key_type != type) continue;
    if (certificate.private_keys.empty()) continue;
    const CK_OBJECT_HANDLE handle = certificate.private_keys.front();
    const bool is_known = std::ranges::find(keys, handle, &Key::handle) != keys.end();
    if (is_known || !ReadFlag(session, handle, usage)) continue;
    Key key = *std::ranges::find(private_keys, handle, &Key::handle);
    if (key.type != type) continue;
    key.certificate = certificate.der;
    key.facts = *certificate.facts;
    keys.push_back(std::move(key));
  }
  return keys;
}

std::vector<Key> Contents::OrdinaryKeys(CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) const {
  const std::vector<Key> all = CertifiedKeys(type, usage);
  std::vector<Key> keys = all;
  std::erase_if(
      keys, [&](const Key& key) { return ReadFlag(session, key.handle, CKA_ALWAYS_AUTHENTICATE); });
  return keys.empty() ? all : keys;
}

std::vector<CK_MECHANISM_TYPE> SlotMechanisms(const Module& module) {
  CK_ULONG count = 0;
  CK_RV result = module.p11()->C_GetMechanismList(module.slot().id, nullptr, &count);
  if (result != CKR_OK || count == 0 || count > kMaxMechanisms) return {};
  std::vector<CK_MECHANISM_TYPE> list(count);
  result = module.p11()->C_GetMechanismList(module.slot().id, list.data(), &count);
  if (result != CKR_OK || count > list.size()) return {};
  list.resize(count);
  return list;
}

bool Offers(const Module& module, CK_MECHANISM_TYPE mechanism) {
  const std::vector<CK_MECHANISM_TYPE> list = SlotMechanisms(module);
  return std::ranges::find(list, mechanism) != list.end();
}

ByteView ProbeData(std::size_t size) {
  return {reinterpret_cast<const CK_BYTE*>(kData.data()), size};
}

OperationResult Sign(const Session& session, const Key& key, CK_MECHANISM_TYPE mechanism,
                     ByteView data, CK_ULONG room) {
  CK_MECHANISM used = {mechanism, nullptr, 0};
  const CK_RV result = session.p11()->C_SignInit(session.handle(), &used, key.handle);
  if (result != CKR_OK) return {"C_SignInit", result, {}};
  return Finish(session.p11()->C_Sign, "C_Sign", session, data, room);
}

OperationResult Decrypt(const Session& session, const Key& key, CK_MECHANISM_TYPE mechanism,
                        ByteView data) {
  CK_MECHANISM used = {mechanism, nullptr, 0};
  const CK_RV result = session.p11()->C_DecryptInit(session.handle(), &used, key.handle);
  if (result != CKR_OK) return {"C_DecryptInit", result, {}};
  return Finish(session.p11()->C_Decrypt, "C_Decrypt", session, data, kRoom);
}

}  // namespace kelvrin::modulecheck
