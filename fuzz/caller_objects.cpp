// The caller's functions that deal with objects and operations.
#include <algorithm>

#include "fuzz/caller.h"
#include "fuzz/expectations.h"

namespace kelvrin::fuzz {

// Calls with a buffer of some room, or asks for the size.
template <typename Call>
void Caller::Collect(const Call& call) {
  const CK_ULONG room = script_.UpTo(kMostRoom);
  Bytes buffer(room, kUntouched);
  const bool asks = script_.Byte() < 0x20;
  CK_ULONG size = room;
  // A vector without bytes may have no pointer, which would ask for the size.
  buffer.reserve(1);
  const CK_RV result = call(asks ? nullptr : buffer.data(), &size);
  if (result == CKR_OK && !asks) Expect(size <= room, "a length beyond the room");
  if (result != CKR_OK && result != CKR_BUFFER_TOO_SMALL) {
    Expect(size == room, "another length after a failure");
  }
  if (result == CKR_OK) return;
  Expect(std::all_of(buffer.begin(), buffer.end(), [](CK_BYTE b) { return b == kUntouched; }),
         "a buffer written in a call that failed");
}

// A template that is an attribute's value, with room for values of its own.
class TemplateValue {
 public:
  CK_ATTRIBUTE Ask(bool asks_for_length) {
    return {CKA_WRAP_TEMPLATE, asks_for_length ? nullptr : entries_.data(), sizeof(entries_)};
  }
  void Expect(CK_RV result, CK_ULONG length) const {
    const std::size_t count = result == CKR_OK ? length / sizeof(CK_ATTRIBUTE) : 0;
    fuzz::Expect(count <= entries_.size(), "more attributes than the template has room for");
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      const CK_ATTRIBUTE& entry = entries_[i];
      const bool has_place = i != kWithoutPlace;
      fuzz::Expect(entry.pValue == (has_place ? rooms_[i].data() : nullptr),
                   "another pointer in an attribute's template");
      if (i >= count) continue;
      fuzz::Expect(entry.ulValueLen <= (has_place ? kRoom : kMostLength),
                   "an attribute's template beyond its room");
    }
  }

 private:
  static constexpr std::size_t kRoom = 8;
  static constexpr std::size_t kWithoutPlace = 1;
  static constexpr CK_ULONG kMostLength = CK_ULONG{1} << 26;

  std::array<std::array<CK_BYTE, kRoom>, 3> rooms_ = {};
  std::array<CK_ATTRIBUTE, 3> entries_ = {
      {{0, rooms_[0].data(), kRoom}, {}, {0, rooms_[2].data(), kRoom}}};
};

void Caller::CallObjects() {
  constexpr std::array<CK_ATTRIBUTE_TYPE, 12> kTypes = {
      CKA_CLASS,   CKA_KEY_TYPE,           CKA_ID,     CKA_LABEL, CKA_VALUE,    CKA_VERIFY,
      CKA_ENCRYPT, CKA_ALLOWED_MECHANISMS, CKA_DERIVE, CKA_WRAP,  CKA_EC_POINT, CKA_WRAP_TEMPLATE};
  std::vector<CK_ATTRIBUTE> attributes(script_.UpTo(4));
  std::vector<Bytes> rooms;
  std::array<TemplateValue, 4> templates;
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    Bytes& room = rooms.emplace_back(script_.UpTo(kMostRoom), kUntouched);
    const CK_ATTRIBUTE_TYPE type = kTypes[script_.UpTo(kTypes.size() - 1)];
    const bool asks_for_length = script_.Byte() < 0x30;
    attributes[i] = {type, asks_for_length ? nullptr : room.data(), room.size()};
    if (type == CKA_WRAP_TEMPLATE) attributes[i] = templates[i].Ask(asks_for_length);
  }
  const std::vector<CK_ATTRIBUTE> before = attributes;
  const CK_RV result =
      p11_->C_GetAttributeValue(Session(), Object(), attributes.data(), attributes.size());
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    Expect(attributes[i].pValue == before[i].pValue, "another pointer in a template");
    Expect(attributes[i].type == before[i].type, "another type in a template");
    if (attributes[i].pValue == nullptr) continue;
    const CK_ULONG length = attributes[i].ulValueLen;
    const bool is_none = length == CK_UNAVAILABLE_INFORMATION;
    Expect(is_none || length <= before[i].ulValueLen, "an attribute beyond its room");
    Expect(result != CKR_OK || !is_none, "an attribute without a length after a success");
    if (attributes[i].type == CKA_WRAP_TEMPLATE) templates[i].Expect(result, length);
  }
}

void Caller::CallNewObjects() {
  CK_OBJECT_HANDLE made = 77;
  CK_OBJECT_HANDLE other = 77;
  CK_MECHANISM mechanism = Mechanism();
  CK_ATTRIBUTE attribute = {CKA_TOKEN, nullptr, 0};
  const CK_ULONG count = script_.UpTo(1);
  CK_RV result = CKR_OK;
  switch (script_.UpTo(6)) {
    case 0:
      result = p11_->C_CreateObject(Session(), &attribute, count, &made);
      break;
    case 1:
      result = p11_->C_CopyObject(Session(), Object(), &attribute, count, &made);
      break;
    case 2:
      result = p11_->C_GenerateKey(Session(), &mechanism, &attribute, count, &made);
      break;
    case 3:
      result = p11_->C_GenerateKeyPair(Session(), &mechanism, &attribute, count, &attribute, count,
                                       &made, &other);
      break;
    case 4:
      result = p11_->C_UnwrapKey(Session(), &mechanism, Object(), parameter_.data(),
                                 parameter_.size(), &attribute, count, &made);
      break;
    case 5:
      p11_->C_DestroyObject(Session(), Object());
      return;
    default:
      result = p11_->C_DeriveKey(Session(), &mechanism, Object(), &attribute, count, &made);
  }
  if (result != CKR_OK) Expect(made == 77 && other == 77, "a handle written after a failure");
}

void Caller::CallSearch() {
  CK_OBJECT_CLASS object_class = script_.UpTo(4);
  Bytes id = script_.Some(3);
  std::array<CK_ATTRIBUTE, 3> wanted = {{{CKA_CLASS, &object_class, sizeof(object_class)},
                                         {CKA_ID, id.data(), id.size()},
                                         {CKA_LABEL, nullptr, 0}}};
  const CK_SESSION_HANDLE session = Session();
  p11_->C_FindObjectsInit(session, wanted.data(), script_.UpTo(3));
  std::vector<CK_OBJECT_HANDLE> found(script_.UpTo(20) + 1);
  CK_ULONG count = 0;
  const CK_ULONG room = found.size() - 1;
  if (p11_->C_FindObjects(session, found.data(), room, &count) == CKR_OK) {
    Expect(count <= room, "more objects than the room has");
  }
  if (script_.Coin()) p11_->C_FindObjectsFinal(session);
}

void Caller::CallInit() {
  CK_MECHANISM mechanism = Mechanism();
  CK_MECHANISM* const pointer = script_.Byte() < 0x08 ? nullptr : &mechanism;
  const CK_SESSION_HANDLE session = Session();
  switch (script_.UpTo(6)) {
    case 0:
      p11_->C_EncryptInit(session, pointer, Object());
      return;
    case 1:
      p11_->C_VerifyInit(session, pointer, Object());
      return;
    case 2:
      p11_->C_DigestInit(session, pointer);
      return;
    case 3:
    case 4:
      p11_->C_DecryptInit(session, pointer, Object());
      return;
    default:
      p11_->C_SignInit(session, pointer, Object());
  }
}

void Caller::CallBytes() {
  const std::array<BytesCall, 13> calls = {p11_->C_Sign,
                                           p11_->C_Decrypt,
                                           p11_->C_Sign,
                                           p11_->C_Decrypt,
                                           p11_->C_Encrypt,
                                           p11_->C_EncryptUpdate,
                                           p11_->C_DecryptUpdate,
                                           p11_->C_Digest,
                                           p11_->C_SignRecover,
                                           p11_->C_VerifyRecover,
                                           p11_->C_SignEncryptUpdate,
                                           p11_->C_DecryptVerifyUpdate,
                                           p11_->C_DecryptDigestUpdate};
  const BytesCall call = calls[script_.UpTo(calls.size() - 1)];
  const CK_SESSION_HANDLE session = Session();
  Bytes input = script_.Some(300);
  CK_BYTE* const pointer = Pointer(script_, input);
  Collect([&](CK_BYTE* output, CK_ULONG* size) {
    return call(session, pointer, input.size(), output, size);
  });
}

void Caller::CallFinal() {
  const std::array<FinalCall, 5> calls = {p11_->C_SignFinal, p11_->C_DecryptFinal,
                                          p11_->C_EncryptFinal, p11_->C_DigestFinal,
                                          p11_->C_GetOperationState};
  const FinalCall call = calls[script_.UpTo(calls.size() - 1)];
  const CK_SESSION_HANDLE session = Session();
  Collect([&](CK_BYTE* output, CK_ULONG* size) { return call(session, output, size); });
}

void Caller::CallOthers() {
  const CK_SESSION_HANDLE session = Session();
  Bytes part = script_.Some(100);
  CK_MECHANISM mechanism = Mechanism();
  CK_ULONG size = 0;
  switch (script_.UpTo(4)) {
    case 0:
      p11_->C_SignUpdate(session, Pointer(script_, part), part.size());
      return;
    case 1:
      p11_->C_GetObjectSize(session, Object(), &size);
      return;
    case 2:
      p11_->C_GenerateRandom(session, part.data(), part.size());
      return;
    case 3:
      p11_->C_VerifyUpdate(session, part.data(), part.size());
      return;
    default: {
      const CK_OBJECT_HANDLE wrapping = Object();
      const CK_OBJECT_HANDLE key = Object();
      return Collect([&](CK_BYTE* output, CK_ULONG* length) {
        return p11_->C_WrapKey(session, &mechanism, wrapping, key, output, length);
      });
    }
  }
}

// Without it few inputs get as far as a result.
void Caller::CallRoad() {
  CK_SESSION_HANDLE session = 1;
  p11_->C_Initialize(nullptr);
  CK_SLOT_ID slot = 0;
  CK_ULONG count = 1;
  p11_->C_GetSlotList(CK_FALSE, &slot, &count);
  p11_->C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session);
  CK_BYTE pin = '1';
  p11_->C_Login(session, CKU_USER, &pin, 1);
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE id = 1;
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}};
  CK_OBJECT_HANDLE key = 0;
  p11_->C_FindObjectsInit(session, wanted, 2);
  p11_->C_FindObjects(session, &key, 1, &count);
  CK_MECHANISM mechanism = Mechanism();
  const bool signs = script_.Coin();
  if (signs) {
    p11_->C_SignInit(session, &mechanism, key);
  } else {
    p11_->C_DecryptInit(session, &mechanism, key);
  }
  Bytes input = script_.Some(257);
  input.reserve(1);
  Collect([&](CK_BYTE* output, CK_ULONG* size) {
    const auto call = signs ? p11_->C_Sign : p11_->C_Decrypt;
    return call(session, input.data(), input.size(), output, size);
  });
}

}  // namespace kelvrin::fuzz
