#include "fuzz/scripted_inner.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <tuple>

#include "adapter/function_names.h"
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

// Any function without an answer of its own below.
template <typename... Arguments>
CK_RV Plain(Arguments...) {
  return script().Result();
}

// Its last arguments are a buffer and its length.
CK_RV GiveBytes(CK_BYTE* output, CK_ULONG* size) {
  const CK_ULONG room = output != nullptr ? *size : 0;
  script().Fill(output, std::min(room, kMostFilled));
  *size = script().Length(room);
  return script().Result();
}
template <typename... Arguments>
CK_RV LastBytes(Arguments... arguments) {
  constexpr std::size_t kCount = sizeof...(Arguments);
  const std::tuple<Arguments...> all(arguments...);
  return GiveBytes(std::get<kCount - 2>(all), std::get<kCount - 1>(all));
}

// Its last argument is a handle, a number or a record.
template <typename... Arguments>
CK_RV LastRecord(Arguments... arguments) {
  auto* const record = std::get<sizeof...(Arguments) - 1>(std::tuple<Arguments...>(arguments...));
  script().Fill(record, sizeof(*record));
  return script().Result();
}
template <typename... Arguments>
CK_RV LastHandle(Arguments... arguments) {
  auto* const handle = std::get<sizeof...(Arguments) - 1>(std::tuple<Arguments...>(arguments...));
  *handle = script().UpTo(4);
  return script().Result();
}
CK_RV TwoHandles(CK_SESSION_HANDLE, CK_MECHANISM*, CK_ATTRIBUTE*, CK_ULONG, CK_ATTRIBUTE*, CK_ULONG,
                 CK_OBJECT_HANDLE* first, CK_OBJECT_HANDLE* second) {
  *first = script().UpTo(3);
  *second = script().UpTo(3);
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
CK_RV GetTokenInfo(CK_SLOT_ID, CK_TOKEN_INFO* info) {
  script().Fill(info, sizeof(*info));
  if (script().Coin()) info->flags |= CKF_TOKEN_INITIALIZED;
  return script().Result();
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

// Attributes of a template that is an attribute's value, whatever the caller's were.
Bytes Attributes(CK_ULONG count) {
  Bytes bytes;
  for (; count > 0; --count) {
    CK_ATTRIBUTE attribute = {};
    attribute.type = script().Coin() ? CKA_ID : CKA_DERIVE_TEMPLATE;
    const CK_ULONG place = script().Number();
    static_assert(sizeof(attribute.pValue) == sizeof(place));
    std::memcpy(static_cast<void*>(&attribute.pValue), &place, sizeof(place));
    attribute.ulValueLen = script().Length(script().UpTo(8));
    const auto* const first = reinterpret_cast<const CK_BYTE*>(&attribute);
    bytes.insert(bytes.end(), first, first + sizeof(attribute));
  }
  return bytes;
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
    case CKA_WRAP_TEMPLATE:
      return Attributes(number);
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
CK_RV WaitForSlotEvent(CK_FLAGS, CK_SLOT_ID* slot, void*) {
  *slot = script().UpTo(3);
  return script().Result();
}

// An entry's type makes its function.
template <typename... Arguments>
void SetPlain(CK_RV (*&entry)(Arguments...)) {
  entry = Plain<Arguments...>;
}
template <typename... Arguments>
void SetBytes(CK_RV (*&entry)(Arguments...)) {
  entry = LastBytes<Arguments...>;
}
template <typename... Arguments>
void SetRecord(CK_RV (*&entry)(Arguments...)) {
  entry = LastRecord<Arguments...>;
}
template <typename... Arguments>
void SetHandle(CK_RV (*&entry)(Arguments...)) {
  entry = LastHandle<Arguments...>;
}

void SetResults(CK_FUNCTION_LIST* list) {
  for (auto* entry :
       {&list->C_EncryptUpdate, &list->C_DecryptUpdate, &list->C_DigestEncryptUpdate,
        &list->C_DecryptDigestUpdate, &list->C_SignEncryptUpdate, &list->C_DecryptVerifyUpdate,
        &list->C_Encrypt, &list->C_Decrypt, &list->C_Digest, &list->C_Sign, &list->C_SignRecover,
        &list->C_VerifyRecover}) {
    SetBytes(*entry);
  }
  for (auto* entry : {&list->C_EncryptFinal, &list->C_DecryptFinal, &list->C_DigestFinal,
                      &list->C_SignFinal, &list->C_GetOperationState}) {
    SetBytes(*entry);
  }
  SetBytes(list->C_WrapKey);
  SetRecord(list->C_GetInfo);
  SetRecord(list->C_GetSlotInfo);
  SetRecord(list->C_GetMechanismInfo);
  SetRecord(list->C_GetSessionInfo);
  SetRecord(list->C_GetObjectSize);
  SetHandle(list->C_CreateObject);
  SetHandle(list->C_CopyObject);
  SetHandle(list->C_GenerateKey);
  SetHandle(list->C_UnwrapKey);
  SetHandle(list->C_DeriveKey);
}

}  // namespace

CK_FUNCTION_LIST ScriptedInner() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
#define KELVRIN_SET_PLAIN(name) SetPlain(list.name);
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_SET_PLAIN, KELVRIN_SET_PLAIN)
#undef KELVRIN_SET_PLAIN
  SetResults(&list);
  list.C_GetSlotList = GetSlotList;
  list.C_GetMechanismList = GetMechanismList;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_OpenSession = OpenSession;
  list.C_FindObjects = FindObjects;
  list.C_GetAttributeValue = GetAttributeValue;
  list.C_GenerateKeyPair = TwoHandles;
  list.C_WaitForSlotEvent = WaitForSlotEvent;
  return list;
}

}  // namespace kelvrin::fuzz
