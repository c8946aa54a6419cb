// Objects, searches and operations.
#include "tests/module/card_model.h"

#include <string.h>

#include <algorithm>

namespace scripted {
namespace {

constexpr CK_ULONG kUnavailable = static_cast<CK_ULONG>(-1);

Bytes NumberBytes(CK_ULONG number) {
  Bytes bytes(sizeof number);
  memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

// The standard's rule for every call that returns bytes.
CK_RV Deliver(const Answer& answer, CK_BYTE* out, CK_ULONG* out_length) {
  const CK_ULONG room = *out_length;
  *out_length = answer.claimed_length.value_or(answer.bytes.size());
  if (out == nullptr) return CKR_OK;
  if (room < answer.bytes.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(answer.bytes.begin(), answer.bytes.end(), out);
  return CKR_OK;
}

CK_RV ReadAttribute(const Object& object, CK_ATTRIBUTE* wanted) {
  const auto found = object.attributes.find(wanted->type);
  CK_RV result = CKR_ATTRIBUTE_TYPE_INVALID;
  if (found != object.attributes.end()) {
    const Attribute& attribute = found->second;
    result = attribute.result;
    if (result == CKR_OK) {
      result = Deliver(attribute, static_cast<CK_BYTE*>(wanted->pValue), &wanted->ulValueLen);
    }
  }
  if (result != CKR_OK) wanted->ulValueLen = kUnavailable;
  return result;
}

bool Matches(const Object& object, const CK_ATTRIBUTE* wanted, CK_ULONG count) {
  return std::all_of(wanted, wanted + count, [&object](const CK_ATTRIBUTE& attribute) {
    const auto found = object.attributes.find(attribute.type);
    if (found == object.attributes.end()) return false;
    const auto* bytes = static_cast<const CK_BYTE*>(attribute.pValue);
    return found->second.bytes == Bytes(bytes, bytes + attribute.ulValueLen);
  });
}

}  // namespace

Object& Object::Set(CK_ATTRIBUTE_TYPE type, const Bytes& value) {
  attributes[type].bytes = value;
  return *this;
}
Object& Object::SetNumber(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
  return Set(type, NumberBytes(value));
}
Object& Object::SetText(CK_ATTRIBUTE_TYPE type, const std::string& value) {
  return Set(type, ToBytes(value));
}
Object& Object::SetFlag(CK_ATTRIBUTE_TYPE type, bool value) {
  return Set(type, {static_cast<CK_BYTE>(value ? CK_TRUE : CK_FALSE)});
}
Object& Object::SetMechanisms(const std::vector<CK_MECHANISM_TYPE>& mechanisms) {
  Bytes bytes;
  for (CK_MECHANISM_TYPE mechanism : mechanisms) {
    const Bytes one = NumberBytes(mechanism);
    bytes.insert(bytes.end(), one.begin(), one.end());
  }
  return Set(CKA_ALLOWED_MECHANISMS, bytes);
}
Object& Object::Claim(CK_ATTRIBUTE_TYPE type, CK_ULONG length) {
  attributes[type].claimed_length = length;
  return *this;
}
Object& Object::Refuse(CK_ATTRIBUTE_TYPE type, CK_RV result) {
  attributes[type].result = result;
  return *this;
}

Object& CardModel::AddObject(CK_OBJECT_CLASS object_class, const Bytes& id) {
  Object& object = objects.emplace_back();
  object.handle = next_object++;
  return object.SetNumber(CKA_CLASS, object_class).Set(CKA_ID, id);
}

Object& CardModel::AddCertificate(const Bytes& id, const std::string& label, const Bytes& der) {
  return AddObject(CKO_CERTIFICATE, id).SetText(CKA_LABEL, label).Set(CKA_VALUE, der);
}

Object* CardModel::FindObject(CK_OBJECT_HANDLE handle) {
  const auto found = std::find_if(objects.begin(), objects.end(), [handle](const Object& object) {
    return object.handle == handle;
  });
  return found == objects.end() ? nullptr : &*found;
}

bool CardModel::Visible(const Object& object) const {
  if (!hide_private_keys || logged_in()) return true;
  const auto found = object.attributes.find(CKA_CLASS);
  return found == object.attributes.end() || found->second.bytes != NumberBytes(CKO_PRIVATE_KEY);
}

CK_RV CardModel::C_DestroyObject(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE handle) {
  const size_t erased =
      std::erase_if(objects, [handle](const Object& object) { return object.handle == handle; });
  return erased == 0 ? CKR_OBJECT_HANDLE_INVALID : CKR_OK;
}

CK_RV CardModel::C_GetAttributeValue(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE handle,
                                     CK_ATTRIBUTE* attributes, CK_ULONG count) {
  const Object* object = FindObject(handle);
  if (object == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  CK_RV result = CKR_OK;
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_RV one = ReadAttribute(*object, &attributes[i]);
    if (result == CKR_OK) result = one;
  }
  return result;
}

CK_RV CardModel::C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes,
                                   CK_ULONG count) {
  if (refuse_second_search && searches_.count(session) != 0) return CKR_OPERATION_ACTIVE;
  std::deque<CK_OBJECT_HANDLE>& search = searches_[session];
  search.clear();
  for (const Object& object : objects) {
    if (Visible(object) && Matches(object, attributes, count)) search.push_back(object.handle);
  }
  return CKR_OK;
}

CK_RV CardModel::C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* found, CK_ULONG room,
                               CK_ULONG* count) {
  const auto search = searches_.find(session);
  if (search == searches_.end()) return CKR_OPERATION_NOT_INITIALIZED;
  CK_ULONG written = 0;
  for (; written < room && !search->second.empty(); ++written) {
    found[written] = search->second.front();
    search->second.pop_front();
  }
  *count = claimed_found.value_or(written);
  return CKR_OK;
}

CK_RV CardModel::C_FindObjectsFinal(CK_SESSION_HANDLE session) {
  return searches_.erase(session) == 0 ? CKR_OPERATION_NOT_INITIALIZED : CKR_OK;
}

CK_RV CardModel::C_SignInit(CK_SESSION_HANDLE /*session*/, CK_MECHANISM* /*mechanism*/,
                            CK_OBJECT_HANDLE /*key*/) {
  return CKR_OK;
}

CK_RV CardModel::C_Sign(CK_SESSION_HANDLE /*session*/, CK_BYTE* /*data*/, CK_ULONG /*data_length*/,
                        CK_BYTE* out, CK_ULONG* out_length) {
  return Deliver(signature, out, out_length);
}

CK_RV CardModel::C_DecryptInit(CK_SESSION_HANDLE /*session*/, CK_MECHANISM* /*mechanism*/,
                               CK_OBJECT_HANDLE /*key*/) {
  return CKR_OK;
}

CK_RV CardModel::C_Decrypt(CK_SESSION_HANDLE /*session*/, CK_BYTE* /*data*/,
                           CK_ULONG /*data_length*/, CK_BYTE* out, CK_ULONG* out_length) {
  return Deliver(plaintext, out, out_length);
}

CK_RV CardModel::C_DeriveKey(CK_SESSION_HANDLE /*session*/, CK_MECHANISM* /*mechanism*/,
                             CK_OBJECT_HANDLE /*key*/, CK_ATTRIBUTE* /*attributes*/,
                             CK_ULONG /*count*/, CK_OBJECT_HANDLE* derived) {
  Object& object = AddObject(CKO_SECRET_KEY, {});
  static_cast<Answer&>(object.attributes[CKA_VALUE]) = derived_secret;
  *derived = object.handle;
  return CKR_OK;
}

}  // namespace scripted
