// The memory module's searches, attributes and objects.
#include <span>

#include "tests/module/memory_functions.h"

namespace kelvrin {
namespace {

MemoryModule& module() { return MemoryModule::Instance(); }

CK_RV FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* wanted, CK_ULONG count) {
  MemorySession& session = *module().FindSession(handle);
  if (session.search) return CKR_OPERATION_ACTIVE;
  session.search.emplace();
  for (const auto& [number, object] : module().FindCard(session.slot)->objects) {
    if (module().FindObject(handle, number) == nullptr) continue;
    const auto attributes = std::span(wanted, count);
    const bool matches =
        std::all_of(attributes.begin(), attributes.end(), [&](const CK_ATTRIBUTE& attribute) {
          const auto* const value = static_cast<const CK_BYTE*>(attribute.pValue);
          return object.Has(attribute.type, {value, value + attribute.ulValueLen});
        });
    if (matches) session.search->push_back(number);
  }
  return CKR_OK;
}

CK_RV FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                  CK_ULONG* count) {
  auto& search = module().FindSession(handle)->search;
  if (!search) return CKR_OPERATION_NOT_INITIALIZED;
  for (*count = 0; *count < room && !search->empty(); ++*count) {
    objects[*count] = search->front();
    search->pop_front();
  }
  return CKR_OK;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE handle) {
  auto& search = module().FindSession(handle)->search;
  if (!search) return CKR_OPERATION_NOT_INITIALIZED;
  search.reset();
  return CKR_OK;
}

CK_RV Read(const MemoryObject& object, CK_ATTRIBUTE& attribute) {
  const CK_ULONG room = attribute.ulValueLen;
  attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
  const auto found = object.attributes.find(attribute.type);
  if (found == object.attributes.end()) return CKR_ATTRIBUTE_TYPE_INVALID;
  const bool is_secret = attribute.type == CKA_PRIVATE_EXPONENT || attribute.type == CKA_VALUE;
  if (is_secret && object.Is(CKA_SENSITIVE)) return CKR_ATTRIBUTE_SENSITIVE;
  const auto& value = found->second;
  if (attribute.pValue != nullptr) {
    if (room < value.size()) return CKR_BUFFER_TOO_SMALL;
    std::copy(value.begin(), value.end(), static_cast<CK_BYTE*>(attribute.pValue));
  }
  attribute.ulValueLen = value.size();
  return CKR_OK;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE handle,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  const MemoryObject* const object = module().FindObject(session, handle);
  if (object == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  CK_RV result = CKR_OK;
  for (CK_ATTRIBUTE& attribute : std::span(attributes, count)) {
    if (const CK_RV one = Read(*object, attribute); one != CKR_OK) result = one;
  }
  return result;
}

CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE handle) {
  if (module().FindObject(session, handle) == nullptr) return CKR_OBJECT_HANDLE_INVALID;
  module().FindCard(module().FindSession(session)->slot)->objects.erase(handle);
  return CKR_OK;
}

}  // namespace

void AddMemoryObjectFunctions(CK_FUNCTION_LIST* list) {
  list->C_FindObjectsInit = WithSession<FindObjectsInit>::Call;
  list->C_FindObjects = WithSession<FindObjects>::Call;
  list->C_FindObjectsFinal = WithSession<FindObjectsFinal>::Call;
  list->C_GetAttributeValue = WithSession<GetAttributeValue>::Call;
  list->C_DestroyObject = WithSession<DestroyObject>::Call;
}

}  // namespace kelvrin
