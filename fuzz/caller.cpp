#include "fuzz/caller.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "adapter/objects/virtual_keys.h"

namespace kelvrin::fuzz {
namespace {

constexpr CK_BYTE kUntouched = 0xee;
constexpr CK_ULONG kMostRoom = 600;

void Expect(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "the adapter broke its word: %s\n", what);
  std::abort();
}

}  // namespace

CK_OBJECT_HANDLE Caller::Object() {
  const CK_OBJECT_HANDLE object = script_.UpTo(12);
  return object < 10 ? object : adapter::VirtualKeys::kFirstHandle + object - 10;
}

CK_MECHANISM Caller::Mechanism() {
  constexpr std::array<CK_MECHANISM_TYPE, 5> kTypes = {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA,
                                                       CKM_ECDSA_SHA1, CKM_AES_CBC};
  return {kTypes[script_.UpTo(kTypes.size() - 1)], nullptr, 0};
}

void Caller::CallOne() {
  switch (script_.UpTo(10)) {
    case 0:
      // With the function list got afresh before it, or without.
      adapter_.Initialize(script_.Coin());
      return;
    case 1:
      adapter_.Finalize();
      return;
    case 2:
      return CallSlots();
    case 3:
      return CallSessions();
    case 4:
      return ReadAttributes();
    case 5:
      return Search();
    case 6:
      return Begin();
    case 7:
    case 8:
      return Run();
    case 9:
      return Derive();
    default:
      return CallRoad();
  }
}

template <typename Entry, typename Call>
void Caller::List(const Call& call) {
  std::vector<Entry> list(script_.UpTo(40) + 1);
  const bool asks = script_.Coin();
  CK_ULONG count = list.size() - 1;
  const CK_ULONG room = count;
  if (call(asks ? nullptr : list.data(), &count) == CKR_OK && !asks) {
    Expect(count <= room, "more entries than the room has");
  }
}

void Caller::CallSlots() {
  const CK_SLOT_ID slot = script_.UpTo(4);
  CK_SLOT_INFO slot_info = {};
  CK_TOKEN_INFO token_info = {};
  CK_MECHANISM_INFO mechanism_info = {};
  CK_INFO info = {};
  switch (script_.UpTo(5)) {
    case 0:
      return List<CK_SLOT_ID>([&](CK_SLOT_ID* list, CK_ULONG* count) {
        return adapter_.GetSlotList(script_.Coin() ? CK_TRUE : CK_FALSE, list, count);
      });
    case 1:
      return List<CK_MECHANISM_TYPE>([&](CK_MECHANISM_TYPE* list, CK_ULONG* count) {
        return adapter_.GetMechanismList(slot, list, count);
      });
    case 2:
      adapter_.GetSlotInfo(slot, &slot_info);
      return;
    case 3:
      adapter_.GetTokenInfo(slot, &token_info);
      return;
    case 4:
      adapter_.GetMechanismInfo(slot, CKM_ECDSA, &mechanism_info);
      return;
    default:
      adapter_.GetInfo(&info);
  }
}

void Caller::CallSessions() {
  const CK_SESSION_HANDLE session = Session();
  CK_SESSION_INFO info = {};
  Bytes pin = script_.Some(20);
  constexpr std::array<CK_USER_TYPE, 2> kUsers = {CKU_USER, CKU_CONTEXT_SPECIFIC};
  switch (script_.UpTo(6)) {
    case 0:
      adapter_.OpenSession(script_.UpTo(3), CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                           &session_);
      return;
    case 1:
      adapter_.CloseSession(session);
      return;
    case 2:
      adapter_.CloseAllSessions(script_.UpTo(3));
      return;
    case 3:
      adapter_.GetSessionInfo(session, &info);
      return;
    case 4:
      adapter_.Logout(session);
      return;
    default:
      adapter_.Login(session, kUsers[script_.UpTo(1)], pin.data(), pin.size());
  }
}

void Caller::ReadAttributes() {
  constexpr std::array<CK_ATTRIBUTE_TYPE, 11> kTypes = {
      CKA_CLASS,   CKA_KEY_TYPE,           CKA_ID,     CKA_LABEL, CKA_VALUE,   CKA_VERIFY,
      CKA_ENCRYPT, CKA_ALLOWED_MECHANISMS, CKA_DERIVE, CKA_WRAP,  CKA_EC_POINT};
  std::vector<CK_ATTRIBUTE> attributes(script_.UpTo(4));
  std::vector<Bytes> rooms;
  for (CK_ATTRIBUTE& attribute : attributes) {
    Bytes& room = rooms.emplace_back(script_.UpTo(kMostRoom), kUntouched);
    const CK_ATTRIBUTE_TYPE type = kTypes[script_.UpTo(kTypes.size() - 1)];
    const bool asks_for_length = script_.Byte() < 0x30;
    attribute = {type, asks_for_length ? nullptr : room.data(), room.size()};
  }
  const std::vector<CK_ATTRIBUTE> before = attributes;
  const CK_RV result =
      adapter_.GetAttributeValue(Session(), Object(), attributes.data(), attributes.size());
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    Expect(attributes[i].pValue == before[i].pValue, "another pointer in a template");
    Expect(attributes[i].type == before[i].type, "another type in a template");
    const CK_ULONG length = attributes[i].ulValueLen;
    Expect(result != CKR_OK || length != CK_UNAVAILABLE_INFORMATION,
           "an attribute without a length after a success");
    if (attributes[i].pValue == nullptr) continue;
    Expect(length <= before[i].ulValueLen, "an attribute beyond its room");
  }
}

void Caller::Search() {
  CK_OBJECT_CLASS object_class = script_.UpTo(4);
  Bytes id = script_.Some(3);
  std::array<CK_ATTRIBUTE, 2> wanted = {
      {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, id.data(), id.size()}}};
  const CK_SESSION_HANDLE session = Session();
  adapter_.FindObjectsInit(session, wanted.data(), script_.UpTo(2));
  std::vector<CK_OBJECT_HANDLE> found(script_.UpTo(20) + 1);
  CK_ULONG count = 0;
  const CK_ULONG room = found.size() - 1;
  if (adapter_.FindObjects(session, found.data(), room, &count) == CKR_OK) {
    Expect(count <= room, "more objects than the room has");
  }
  if (script_.Coin()) adapter_.FindObjectsFinal(session);
}

void Caller::Begin() {
  CK_MECHANISM mechanism = Mechanism();
  const CK_SESSION_HANDLE session = Session();
  if (script_.Coin()) {
    adapter_.SignInit(session, &mechanism, Object());
  } else {
    adapter_.DecryptInit(session, &mechanism, Object());
  }
}

// With a buffer of some room, or asking for the size.
void Caller::Run() {
  const CK_SESSION_HANDLE session = Session();
  const bool signs = script_.Coin();
  Bytes input = script_.Some(300);
  // Around the sizes of keys mostly.
  const CK_ULONG room = std::min(script_.Number(), kMostRoom);
  Bytes buffer(room, kUntouched);
  const bool asks = script_.Byte() < 0x20;
  CK_ULONG size = room;
  // A vector without bytes may have no pointer, which would ask for the size.
  buffer.reserve(1);
  CK_BYTE* const output = asks ? nullptr : buffer.data();
  const CK_RV result = signs ? adapter_.Sign(session, input.data(), input.size(), output, &size)
                             : adapter_.Decrypt(session, input.data(), input.size(), output, &size);
  if (result == CKR_OK && !asks) Expect(size <= room, "a length beyond the room");
  if (result != CKR_OK && result != CKR_BUFFER_TOO_SMALL) {
    Expect(size == room, "another length after a failure");
  }
  if (result == CKR_OK) return;
  Expect(std::all_of(buffer.begin(), buffer.end(), [](CK_BYTE b) { return b == kUntouched; }),
         "a buffer written in a call that failed");
}

void Caller::Derive() {
  CK_OBJECT_HANDLE made = CK_INVALID_HANDLE;
  const CK_SESSION_HANDLE session = Session();
  if (script_.Byte() < 0x20) {
    adapter_.DestroyObject(session, Object());
    return;
  }
  Bytes point = script_.Coin() ? Bytes(65, 4) : script_.Some(140);
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  parameters.kdf = CKD_NULL;
  parameters.pPublicData = point.data();
  parameters.ulPublicDataLen = point.size();
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  adapter_.DeriveKey(session, &mechanism, Object(), nullptr, 0, &made);
}

void Caller::CallRoad() {
  adapter_.Initialize(script_.Coin());
  CK_SLOT_ID slot = 0;
  CK_ULONG count = 1;
  adapter_.GetSlotList(CK_FALSE, &slot, &count);
  adapter_.OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session_);
  CK_BYTE pin = '1';
  adapter_.Login(session_, CKU_USER, &pin, 1);
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE id = 1;
  std::array<CK_ATTRIBUTE, 2> wanted = {
      {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}}};
  CK_OBJECT_HANDLE key = 0;
  adapter_.FindObjectsInit(session_, wanted.data(), wanted.size());
  adapter_.FindObjects(session_, &key, 1, &count);
  CK_MECHANISM mechanism = Mechanism();
  if (script_.Coin()) {
    adapter_.SignInit(session_, &mechanism, key);
  } else {
    adapter_.DecryptInit(session_, &mechanism, key);
  }
  Run();
}

}  // namespace kelvrin::fuzz
