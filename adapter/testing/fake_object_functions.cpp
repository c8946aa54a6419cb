// The functions of the fake module that deal with objects and keys.
#include <algorithm>
#include <cstring>
#include <span>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

FakeModule*& fake = FakeModule::current;

CK_RV DestroyObject(CK_SESSION_HANDLE, CK_OBJECT_HANDLE object) {
  if (const CK_RV result = fake->Enter("C_DestroyObject"); result != CKR_OK) return result;
  return fake->objects.erase(object) == 1 ? CKR_OK : CKR_OBJECT_HANDLE_INVALID;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE handle, CK_ATTRIBUTE* attributes,
                        CK_ULONG count) {
  if (const CK_RV result = fake->Enter("C_GetAttributeValue"); result != CKR_OK) return result;
  const auto object = fake->objects.find(handle);
  if (object == fake->objects.end()) return CKR_OBJECT_HANDLE_INVALID;
  CK_RV result = CKR_OK;
  for (CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    const auto value = object->second.find(attribute.type);
    const bool is_number = attribute.type == CKA_KEY_TYPE || attribute.type == CKA_CLASS;
    CK_RV one = CKR_OK;
    if (value == object->second.end()) {
      one = CKR_ATTRIBUTE_TYPE_INVALID;
    } else if (attribute.pValue != nullptr &&
               (attribute.ulValueLen < value->second.size() ||
                (is_number && attribute.ulValueLen != sizeof(CK_ULONG)))) {
      one = CKR_BUFFER_TOO_SMALL;
    }
    if (one != CKR_OK) {
      attribute.ulValueLen = fake->unreadable_length;
      result = one;
      continue;
    }
    if (attribute.pValue != nullptr && !value->second.empty()) {
      std::memcpy(attribute.pValue, value->second.data(), value->second.size());
    }
    attribute.ulValueLen = value->second.size() + fake->claimed_excess;
  }
  return result;
}

CK_RV SetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE handle, CK_ATTRIBUTE* attributes,
                        CK_ULONG count) {
  if (const CK_RV result = fake->Enter("C_SetAttributeValue"); result != CKR_OK) return result;
  for (const CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    const auto* const value = static_cast<const CK_BYTE*>(attribute.pValue);
    fake->objects[handle][attribute.type].assign(value, value + attribute.ulValueLen);
  }
  return CKR_OK;
}

bool Matches(const FakeModule::Object& object, const CK_ATTRIBUTE& attribute) {
  const auto value = object.find(attribute.type);
  return value != object.end() && value->second.size() == attribute.ulValueLen &&
         std::memcmp(value->second.data(), attribute.pValue, attribute.ulValueLen) == 0;
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (const CK_RV result = fake->Enter("C_FindObjectsInit"); result != CKR_OK) return result;
  auto& session = fake->sessions.at(handle);
  if (session.searching || session.operation) return CKR_OPERATION_ACTIVE;
  session.searching = true;
  session.found.clear();
  const std::span wanted(attributes, count);
  for (const auto& [object, values] : fake->objects) {
    const bool matches = std::all_of(wanted.begin(), wanted.end(),
                                     [&](const CK_ATTRIBUTE& one) { return Matches(values, one); });
    if (matches) session.found.push_back(object);
  }
  return CKR_OK;
}

CK_RV FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                  CK_ULONG* count) {
  if (const CK_RV result = fake->Enter("C_FindObjects"); result != CKR_OK) return result;
  auto& session = fake->sessions.at(handle);
  if (!session.searching) return CKR_OPERATION_NOT_INITIALIZED;
  CK_ULONG given = 0;
  for (; given < room && !session.found.empty(); ++given) {
    objects[given] = session.found.front();
    session.found.pop_front();
  }
  *count = given + fake->claimed_excess;
  return CKR_OK;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE handle) {
  if (const CK_RV result = fake->Enter("C_FindObjectsFinal"); result != CKR_OK) return result;
  fake->sessions.at(handle).searching = false;
  return CKR_OK;
}

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  fake->operation_key = key;
  const CK_RV result = fake->Enter("C_SignInit");
  return result == CKR_OK ? fake->Begin(session, mechanism) : result;
}

CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* output,
           CK_ULONG* output_size) {
  const CK_RV result = fake->Enter("C_Sign");
  if (result != CKR_OK) return result;
  return fake->Finish(fake->sign, session, data, size, output, output_size);
}

CK_RV SignUpdate(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG) { return fake->Enter("C_SignUpdate"); }

CK_RV SignFinal(CK_SESSION_HANDLE session, CK_BYTE* output, CK_ULONG* output_size) {
  const CK_RV result = fake->Enter("C_SignFinal");
  CK_BYTE nothing = 0;
  if (result != CKR_OK) return result;
  return fake->Finish(fake->sign, session, &nothing, 0, output, output_size);
}

CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  fake->operation_key = key;
  const CK_RV result = fake->Enter("C_DecryptInit");
  return result == CKR_OK ? fake->Begin(session, mechanism) : result;
}

CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* output,
              CK_ULONG* output_size) {
  const CK_RV result = fake->Enter("C_Decrypt");
  if (result != CKR_OK) return result;
  return fake->Finish(fake->decrypt, session, data, size, output, output_size);
}

CK_RV DecryptUpdate(CK_SESSION_HANDLE, CK_BYTE* part, CK_ULONG size, CK_BYTE* output,
                    CK_ULONG* output_size) {
  if (const CK_RV result = fake->Enter("C_DecryptUpdate"); result != CKR_OK) return result;
  std::copy_n(part, std::min(size, *output_size), output);
  *output_size = size + fake->claimed_excess;
  return CKR_OK;
}

CK_RV DeriveKey(CK_SESSION_HANDLE, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base_key,
                CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key) {
  fake->derive_template.clear();
  fake->derive_length = 0;
  fake->has_derive_place = key != nullptr;
  for (const CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    fake->derive_template.push_back(attribute.type);
    if (attribute.type == CKA_VALUE_LEN) {
      fake->derive_length = *static_cast<const CK_ULONG*>(attribute.pValue);
    }
  }
  CK_RV result = fake->Enter("C_DeriveKey");
  if (fake->derive_key.value_or(base_key) != base_key) result = CKR_KEY_HANDLE_INVALID;
  if (result == CKR_OK && mechanism->ulParameterLen == sizeof(CK_ECDH1_DERIVE_PARAMS)) {
    const auto& parameters = *static_cast<const CK_ECDH1_DERIVE_PARAMS*>(mechanism->pParameter);
    fake->derive_point.assign(parameters.pPublicData,
                              parameters.pPublicData + parameters.ulPublicDataLen);
    if (fake->derive) result = fake->derive(parameters);
  }
  if (result != CKR_OK) return result;
  const CK_OBJECT_HANDLE made = fake->Add({{CKA_CLASS, FakeModule::Number(CKO_SECRET_KEY)},
                                           {CKA_TOKEN, FakeModule::Flag(false)},
                                           {CKA_VALUE, {1, 2, 3}}});
  if (key != nullptr && !fake->gives_no_handle) *key = made;
  return result;
}

CK_RV GenerateRandom(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG) {
  return fake->Enter("C_GenerateRandom");
}

}  // namespace

void FakeModule::AddObjectFunctions(CK_FUNCTION_LIST* list) {
  list->C_DestroyObject = DestroyObject;
  list->C_GetAttributeValue = GetAttributeValue;
  list->C_SetAttributeValue = SetAttributeValue;
  list->C_FindObjectsInit = FindObjectsInit;
  list->C_FindObjects = FindObjects;
  list->C_FindObjectsFinal = FindObjectsFinal;
  list->C_SignInit = SignInit;
  list->C_Sign = Sign;
  list->C_SignUpdate = SignUpdate;
  list->C_SignFinal = SignFinal;
  list->C_DecryptInit = DecryptInit;
  list->C_Decrypt = Decrypt;
  list->C_DecryptUpdate = DecryptUpdate;
  list->C_DeriveKey = DeriveKey;
  list->C_GenerateRandom = GenerateRandom;
}

}  // namespace kelvrin::adapter
