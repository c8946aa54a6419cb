// The adapter's functions that deal with objects: attributes, searches, derived keys.
#include <algorithm>
#include <span>
#include <utility>

#include "adapter/adapter.h"
#include "adapter/attributes.h"
#include "adapter/key_derivation.h"

namespace kelvrin::adapter {
namespace {

bool GivesKeysInItsParameter(const CK_MECHANISM& mechanism) {
  switch (mechanism.mechanism) {
    case CKM_SSL3_KEY_AND_MAC_DERIVE:
    case CKM_TLS_KEY_AND_MAC_DERIVE:
    case CKM_TLS12_KEY_AND_MAC_DERIVE:
    case CKM_TLS12_KEY_SAFE_DERIVE:
    case CKM_WTLS_SERVER_KEY_AND_MAC_DERIVE:
    case CKM_WTLS_CLIENT_KEY_AND_MAC_DERIVE:
      return true;
    default:
      return false;
  }
}

}  // namespace

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

CK_RV Adapter::SetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                 CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return WithSession(session, [&](Session&) {
    if (attributes == nullptr && count != 0) return CK_RV{CKR_ARGUMENTS_BAD};
    const CK_RV result =
        backend_->functions.C_SetAttributeValue(session, object, attributes, count);
    ForgetObjects();
    const std::span<const CK_ATTRIBUTE> changed(attributes, count);
    const bool has_new_id =
        std::any_of(changed.begin(), changed.end(),
                    [](const CK_ATTRIBUTE& attribute) { return attribute.type == CKA_ID; });
    if (result == CKR_OK && has_new_id) TakeAsItIs(object);
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
    if (mechanism == nullptr) return CKR_ARGUMENTS_BAD;
    const bool is_served = count == 0 && backend_->config.rules.Has(Rule::kDerivation) &&
                           !GivesKeysInItsParameter(*mechanism);
    if (is_served) return DeriveReadable(state, session, *mechanism, base_key, key);
    CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
    const auto derive = [&](CK_OBJECT_HANDLE current) {
      return backend_->functions.C_DeriveKey(session, mechanism, current, attributes, count,
                                             key != nullptr ? &derived : nullptr);
    };
    const CK_RV result = state.token.objects.WithCurrent(session, base_key, derive);
    ForgetObjects();
    if (result != CKR_OK || key == nullptr) return result;
    if (derived == CK_INVALID_HANDLE && !GivesKeysInItsParameter(*mechanism)) {
      return CKR_DEVICE_ERROR;
    }
    TakeAsItIs(derived);
    *key = derived;
    return CKR_OK;
  });
}

CK_RV Adapter::DeriveReadable(Session& state, CK_SESSION_HANDLE session,
                              const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE base_key,
                              CK_OBJECT_HANDLE* key) {
  if (key == nullptr) return CKR_ARGUMENTS_BAD;
  const CK_FUNCTION_LIST& inner = backend_->functions;
  state.derived.BelongTo(state.token.objects.TokenIdentity());
  if (const auto previous = state.derived.Take()) DestroyDerivedKey(inner, session, *previous);
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  const auto derive = [&](CK_OBJECT_HANDLE current) {
    return DeriveReadableKey(inner, session, mechanism, current, &derived);
  };
  const CK_RV result = state.token.objects.WithCurrent(session, base_key, derive);
  if (result != CKR_OK) return result;
  TakeAsItIs(derived);
  if (const auto dropped = state.derived.Remember(derived)) {
    DestroyDerivedKey(inner, session, *dropped);
  }
  *key = derived;
  return CKR_OK;
}

void Adapter::TakeAsItIs(CK_OBJECT_HANDLE object) {
  for (auto& [slot, token] : tokens_) token.objects.TakeAsItIs(object);
  for (auto& [handle, state] : sessions_) state.derived.Drop(object);
}

}  // namespace kelvrin::adapter
