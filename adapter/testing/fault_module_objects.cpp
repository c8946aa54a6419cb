// The fault module's searches and attributes.
#include <algorithm>

#include "adapter/testing/fault_module_state.h"

namespace kelvrin::adapter::fault_module {
namespace {

bool Matches(const Object& object, const CK_ATTRIBUTE* wanted, CK_ULONG count) {
  return std::all_of(wanted, wanted + count, [&](const CK_ATTRIBUTE& attribute) {
    const auto found = object.attributes.find(attribute.type);
    if (found == object.attributes.end()) return false;
    const auto* const value = static_cast<const CK_BYTE*>(attribute.pValue);
    return std::equal(value, value + attribute.ulValueLen, found->second.begin(),
                      found->second.end());
  });
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* wanted, CK_ULONG count) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (state->search && Has(Fault::kOneSearchAtATime)) return CKR_OPERATION_ACTIVE;
  ++Control().searches;
  state->search.emplace();
  for (const auto& [handle, object] : TheState().objects) {
    if (FindObject(handle) == nullptr || !Matches(object, wanted, count)) continue;
    state->search->found.push_back(handle);
  }
  return CKR_OK;
}

CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                  CK_ULONG* count) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!state->search) return CKR_OPERATION_NOT_INITIALIZED;
  OpenSearch& search = *state->search;
  for (*count = 0; *count < room && search.given < search.found.size(); ++*count) {
    objects[*count] = search.found[search.given++];
  }
  return CKR_OK;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) {
  Session* const state = FindSession(session);
  if (state == nullptr) return CKR_SESSION_HANDLE_INVALID;
  if (!state->search) return CKR_OPERATION_NOT_INITIALIZED;
  state->search.reset();
  return CKR_OK;
}

CK_RV Fail(CK_RV result, CK_ATTRIBUTE* attribute) {
  if (Has(Fault::kLengthUnchanged)) return result;
  const bool is_missing_list =
      Has(Fault::kNoMechanismList) && attribute->type == CKA_ALLOWED_MECHANISMS;
  const bool is_unavailable = Has(Fault::kLengthMinusOne) || is_missing_list;
  attribute->ulValueLen = is_unavailable ? CK_UNAVAILABLE_INFORMATION : 0;
  return result;
}

CK_RV Read(const Object& object, CK_ATTRIBUTE* attribute) {
  const auto found = object.attributes.find(attribute->type);
  if (found == object.attributes.end()) return Fail(CKR_ATTRIBUTE_TYPE_INVALID, attribute);
  const auto sensitive = object.attributes.find(CKA_SENSITIVE);
  const bool is_secret = attribute->type == CKA_PRIVATE_EXPONENT || attribute->type == CKA_VALUE;
  if (is_secret && sensitive != object.attributes.end() && sensitive->second == Flag(true)) {
    return Fail(CKR_ATTRIBUTE_SENSITIVE, attribute);
  }
  const Bytes& value = found->second;
  if (attribute->pValue != nullptr) {
    if (attribute->ulValueLen < value.size()) return Fail(CKR_BUFFER_TOO_SMALL, attribute);
    std::copy(value.begin(), value.end(), static_cast<CK_BYTE*>(attribute->pValue));
  }
  attribute->ulValueLen = value.size();
  return CKR_OK;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (FindSession(session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  const Object* const found = FindObject(object);
  if (found == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  CK_RV result = CKR_OK;
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_RV own = Read(*found, &attributes[i]);
    if (own != CKR_OK) result = own;
  }
  return result;
}

CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  if (FindSession(session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  const Object* const found = FindObject(object);
  if (found == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  if (found->attributes.at(CKA_CLASS) == Number(CKO_SECRET_KEY)) --Control().derived_keys;
  TheState().objects.erase(object);
  return CKR_OK;
}

}  // namespace

void AddObjectFunctions(CK_FUNCTION_LIST* list) {
  list->C_FindObjectsInit = FindObjectsInit;
  list->C_FindObjects = FindObjects;
  list->C_FindObjectsFinal = FindObjectsFinal;
  list->C_GetAttributeValue = GetAttributeValue;
  list->C_DestroyObject = DestroyObject;
}

}  // namespace kelvrin::adapter::fault_module
