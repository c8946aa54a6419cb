#include "fuzz/hostile_module.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "adapter/inner/inner_module.h"
#include "encoding/testing/certificates.h"
#include "fuzz/script.h"

namespace kelvrin::fuzz {
namespace {

// The largest room that the module fills: callers' rooms are claims of theirs.
constexpr CK_ULONG kMostFilled = 8192;

Script& script() { return *Script::current; }

const std::array<Bytes, 2>& Certificates() {
  static const auto* const certificates = new std::array<Bytes, 2>{
      encoding::MakeCertificate({.extensions = {{"basicConstraints", "CA:TRUE"}}}),
      encoding::MakeCertificate({.key = "RSA"})};
  return *certificates;
}

// A function that gives nothing but its result.
template <typename... Arguments>
CK_RV Plain(Arguments...) {
  return script().Result();
}
template <typename... Arguments>
void SetPlain(CK_RV (*&entry)(Arguments...)) {
  entry = Plain<Arguments...>;
}

template <typename Record>
CK_RV GiveRecord(Record* record) {
  script().Fill(record, sizeof(*record));
  return script().Result();
}
CK_RV GetInfo(CK_INFO* info) { return GiveRecord(info); }
CK_RV GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO* info) { return GiveRecord(info); }
CK_RV GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE, CK_MECHANISM_INFO* info) {
  return GiveRecord(info);
}
CK_RV GetSessionInfo(CK_SESSION_HANDLE, CK_SESSION_INFO* info) { return GiveRecord(info); }
CK_RV GetTokenInfo(CK_SLOT_ID, CK_TOKEN_INFO* info) {
  // The same token now and then, so that a later bring-up finds what the first one chose.
  if (!script().Coin()) {
    std::memset(static_cast<void*>(info), ' ', sizeof(*info));
    info->flags = CKF_TOKEN_INITIALIZED;
    return script().Result();
  }
  script().Fill(info, sizeof(*info));
  if (script().Coin()) info->flags |= CKF_TOKEN_INITIALIZED;
  return script().Result();
}

template <typename Entry>
CK_RV GiveList(Entry* list, CK_ULONG* count) {
  const CK_ULONG room = list != nullptr ? *count : script().UpTo(8);
  if (list != nullptr) {
    for (Entry& entry : std::span(list, std::min(room, kMostFilled))) entry = script().UpTo(3);
  }
  *count = script().Length(room);
  return script().Result();
}
CK_RV GetSlotList(CK_BBOOL, CK_SLOT_ID* list, CK_ULONG* count) { return GiveList(list, count); }
CK_RV GetMechanismList(CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  constexpr std::array<CK_MECHANISM_TYPE, 4> kOffered = {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA,
                                                         CKM_ECDH1_DERIVE};
  const CK_ULONG room = list != nullptr ? std::min(*count, kMostFilled) : 0;
  const CK_RV result = GiveList(list, count);
  for (CK_MECHANISM_TYPE& entry : std::span(list, room)) entry = kOffered[entry % kOffered.size()];
  return result;
}

CK_RV OpenSession(CK_SLOT_ID, CK_FLAGS, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
  *session = script().UpTo(5);
  return script().Result();
}

CK_RV FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE* objects, CK_ULONG room, CK_ULONG* count) {
  const CK_ULONG given = script().UpTo(std::min<CK_ULONG>(room, 5));
  for (CK_OBJECT_HANDLE& object : std::span(objects, given)) object = script().UpTo(9);
  *count = script().Byte() < 0xf0 ? given : script().Length(room);
  return script().Result();
}

// A value that fits the type now and then, so that what comes behind is reached.
Bytes Likely(CK_ATTRIBUTE_TYPE type) {
  CK_ULONG number = script().UpTo(3);
  Bytes bytes(sizeof(number));
  switch (type) {
    case CKA_VALUE:
      return Certificates()[number % 2];
    case CKA_CLASS:
      number = script().Coin() ? CKO_PRIVATE_KEY : CKO_CERTIFICATE;
      if (script().Coin()) number = CKO_PUBLIC_KEY;
      break;
    case CKA_KEY_TYPE:
      number = script().Coin() ? CKK_RSA : CKK_EC;
      break;
    case CKA_ID:
      return Bytes(number, 1);
    case CKA_MODULUS:
      return Bytes(script().Coin() ? 64 : 256, 0xab);
    case CKA_EC_PARAMS:
      return {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};
    case CKA_ALWAYS_AUTHENTICATE:
      return {static_cast<CK_BYTE>(number & 1)};
    default:
      break;
  }
  std::memcpy(bytes.data(), &number, sizeof(number));
  return bytes;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE* attributes,
                        CK_ULONG count) {
  for (CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    const CK_ULONG room = attribute.pValue != nullptr ? attribute.ulValueLen : 0;
    if (script().Byte() < 0xd0) {
      const Bytes value = Likely(attribute.type);
      const std::size_t size = std::min<std::size_t>(room, value.size());
      if (size != 0) std::memcpy(attribute.pValue, value.data(), size);
      attribute.ulValueLen = value.size();
      continue;
    }
    script().Fill(attribute.pValue, std::min(room, kMostFilled));
    attribute.ulValueLen = script().Length(room);
  }
  return script().Result();
}

CK_RV GiveBytes(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE* output, CK_ULONG* size) {
  const CK_ULONG room = output != nullptr ? *size : 0;
  script().Fill(output, std::min(room, kMostFilled));
  *size = script().Length(room);
  return script().Result();
}

CK_RV DeriveKey(CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
                CK_OBJECT_HANDLE* key) {
  *key = script().UpTo(4);
  return script().Result();
}

}  // namespace

CK_FUNCTION_LIST HostileModule() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  SetPlain(list.C_Initialize);
  SetPlain(list.C_Finalize);
  list.C_GetInfo = GetInfo;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_GetMechanismList = GetMechanismList;
  list.C_GetMechanismInfo = GetMechanismInfo;
  list.C_OpenSession = OpenSession;
  SetPlain(list.C_CloseSession);
  SetPlain(list.C_CloseAllSessions);
  list.C_GetSessionInfo = GetSessionInfo;
  SetPlain(list.C_Login);
  SetPlain(list.C_Logout);
  SetPlain(list.C_FindObjectsInit);
  list.C_FindObjects = FindObjects;
  SetPlain(list.C_FindObjectsFinal);
  list.C_GetAttributeValue = GetAttributeValue;
  SetPlain(list.C_DestroyObject);
  SetPlain(list.C_SignInit);
  list.C_Sign = GiveBytes;
  SetPlain(list.C_DecryptInit);
  list.C_Decrypt = GiveBytes;
  list.C_DeriveKey = DeriveKey;
  return adapter::CompleteFunctionList(list);
}

}  // namespace kelvrin::fuzz
