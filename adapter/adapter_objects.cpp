// The adapter's functions that deal with objects: attributes, searches, derived keys.
#include <algorithm>
#include <utility>

#include "adapter/adapter.h"
#include "adapter/attributes.h"
#include "adapter/key_derivation.h"

namespace kelvrin::adapter {

CK_RV Adapter::GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                 CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (attributes == nullptr && count != 0) return CKR_ARGUMENTS_BAD;
    return GetAttributes(state.token.objects, session, object, {attributes, count});
  });
}

CK_RV Adapter::DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  return WithSession(session, [&](Session&) {
    // Its handle may come back for something else.
    for (auto& [handle, state] : sessions_) state.derived.Drop(object);
    const CK_RV result = backend_->functions.C_DestroyObject(session, object);
    ForgetObjects();
    return result;
  });
}

CK_RV Adapter::FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes,
                               CK_ULONG count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (attributes == nullptr && count != 0) return CKR_ARGUMENTS_BAD;
    if (!backend_->config.rules.Has(Rule::kFinishedSearches)) {
      return backend_->functions.C_FindObjectsInit(session, attributes, count);
    }
    state.searches.DropOwn();
    Handles found;
    const CK_RV result = state.token.objects.Find(session, {attributes, count}, &found);
    if (result == CKR_OK) state.searches.Open(Search(std::move(found)));
    return result;
  });
}

CK_RV Adapter::FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                           CK_ULONG* count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (count == nullptr || (objects == nullptr && room != 0)) return CKR_ARGUMENTS_BAD;
    if (!backend_->config.rules.Has(Rule::kFinishedSearches)) {
      CK_ULONG given = 0;
      const CK_RV result = backend_->functions.C_FindObjects(session, objects, room, &given);
      if (result == CKR_OK) *count = std::min(given, room);
      return result;
    }
    Search* const search = state.searches.Current();
    if (search == nullptr) return CKR_OPERATION_NOT_INITIALIZED;
    *count = search->Next(objects, room);
    return CKR_OK;
  });
}

CK_RV Adapter::FindObjectsFinal(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (!backend_->config.rules.Has(Rule::kFinishedSearches)) {
      return backend_->functions.C_FindObjectsFinal(session);
    }
    return state.searches.Close() ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
  });
}

CK_RV Adapter::DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                         CK_OBJECT_HANDLE base_key, CK_ATTRIBUTE* attributes, CK_ULONG count,
                         CK_OBJECT_HANDLE* key) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (mechanism == nullptr || key == nullptr) return CKR_ARGUMENTS_BAD;
    const CK_FUNCTION_LIST& inner = backend_->functions;
    CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
    if (count != 0 || !backend_->config.rules.Has(Rule::kDerivation)) {
      const CK_RV result =
          inner.C_DeriveKey(session, mechanism, base_key, attributes, count, &derived);
      if (result == CKR_OK) *key = derived;
      return result;
    }
    if (const auto previous = state.derived.Take()) inner.C_DestroyObject(session, *previous);
    const CK_OBJECT_HANDLE current = state.token.objects.Current(session, base_key);
    if (current == CK_INVALID_HANDLE) return CKR_KEY_HANDLE_INVALID;
    const CK_RV result = DeriveReadableKey(inner, session, *mechanism, current, &derived);
    if (result != CKR_OK) return result;
    if (const auto dropped = state.derived.Remember(derived)) {
      inner.C_DestroyObject(session, *dropped);
    }
    *key = derived;
    return CKR_OK;
  });
}

}  // namespace kelvrin::adapter
