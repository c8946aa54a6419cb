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

Object ReadObject(const Session& session, CK_OBJECT_HANDLE handle) {
  return {handle, ReadOrEmpty(session, handle, CKA_ID), ReadOrEmpty(session, handle, CKA_LABEL)};
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
    const Bytes modulus = ReadOrEmpty(session, handle, CKA_MODULUS);
    const auto first = std::ranges::find_if(modulus, [](CK_BYTE byte) { return byte != 0; });
    bits = 8 * static_cast<std::size_t>(modulus.end() - first);
    return bits == 0 ? "RSA" : "RSA-" + std::to_string(bits);
  }
  if (type != CKK_EC) return "of another type";
  bits = 8 * encoding::CurveSize(ReadOrEmpty(session, handle, CKA_EC_PARAMS));
  // The one curve whose size is no whole number of bytes.
  if (bits == 528) bits = 521;
  return bits == 0 ? "EC" : "EC of " + std::to_string(bits) + " bits";
}

Key ReadKey(const Session& session, CK_OBJECT_HANDLE handle) {
  const CK_KEY_TYPE type = ReadKeyType(session, handle);
  return {ReadObject(session, handle), type, TypeText(session, handle, type), {}, {}};
}

bool IsUsable(const Key& key) { return key.type == CKK_RSA || key.type == CKK_EC; }

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

Handles FindClass(const Session& session, CK_OBJECT_CLASS object_class) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}};
  return FindAll(session, wanted);
}

Handles FindId(const Session& session, CK_OBJECT_CLASS object_class, const Bytes& id) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)},
                           {CKA_ID, const_cast<CK_BYTE*>(id.data()), id.size()}};
  return FindAll(session, wanted);
}

std::optional<Bytes> ReadBytes(const Session& session, CK_OBJECT_HANDLE object,
                               CK_ATTRIBUTE_TYPE type) {
  CK_ATTRIBUTE attribute = {type, nullptr, 0};
  const auto read = [&] {
    return session.p11()->C_GetAttributeValue(session.handle(), object, &attribute, 1);
  };
  if (read() != CKR_OK || attribute.ulValueLen > kMaxValue) return std::nullopt;
  Bytes value(attribute.ulValueLen);
  // Some modules take a null pointer for a question, whatever the length.
  CK_BYTE nothing = 0;
  attribute.pValue = value.empty() ? &nothing : value.data();
  if (read() != CKR_OK || attribute.ulValueLen > value.size()) return std::nullopt;
  value.resize(attribute.ulValueLen);
  return value;
}

Bytes ReadOrEmpty(const Session& session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  return ReadBytes(session, object, type).value_or(Bytes());
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

std::vector<Certificate> ReadCertificates(const Session& session) {
  std::vector<Certificate> certificates;
  for (const CK_OBJECT_HANDLE handle : FindClass(session, CKO_CERTIFICATE)) {
    certificates.push_back({ReadObject(session, handle), ReadOrEmpty(session, handle, CKA_VALUE)});
  }
  return certificates;
}

std::vector<Key> ReadKeys(const Session& session, const Handles& handles) {
  std::vector<Key> keys;
  keys.reserve(handles.size());
  for (const CK_OBJECT_HANDLE handle : handles) keys.push_back(ReadKey(session, handle));
  return keys;
}

std::vector<Key> PublicKeys(const Session& session) {
  std::vector<Key> keys;
  for (const CK_OBJECT_HANDLE certificate : FindClass(session, CKO_CERTIFICATE)) {
    const Bytes id = ReadOrEmpty(session, certificate, CKA_ID);
    for (Key& key : ReadKeys(session, FindId(session, CKO_PUBLIC_KEY, id))) {
      const bool is_known =
          std::ranges::any_of(keys, [&](const Key& known) { return known.handle == key.handle; });
      if (!is_known && IsUsable(key)) keys.push_back(std::move(key));
    }
  }
  return keys;
}

std::vector<Key> CertifiedKeys(const Session& session, CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) {
  std::vector<Key> keys;
  for (const Certificate& certificate : ReadCertificates(session)) {
    const auto facts = encoding::ReadCertificate(certificate.der);
    if (!facts || facts->key_type != type) continue;
    const Handles found = FindId(session, CKO_PRIVATE_KEY, certificate.id);
    if (found.empty()) continue;
    const bool is_known =
        std::ranges::any_of(keys, [&](const Key& known) { return known.handle == found.front(); });
    if (is_known || !ReadFlag(session, found.front(), usage)) continue;
    Key key = ReadKey(session, found.front());
    if (key.type != type) continue;
    key.certificate = certificate.der;
    key.facts = *facts;
    keys.push_back(std::move(key));
  }
  return keys;
}

std::vector<Key> OrdinaryKeys(const Session& session, CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE usage) {
  const std::vector<Key> all = CertifiedKeys(session, type, usage);
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
