#include "adapter/adapter.h"

#include <span>
#include <utility>

#include "adapter/attributes.h"
#include "adapter/key_derivation.h"

namespace kelvrin::adapter {
namespace {

void Discount(CK_ULONG workers, CK_ULONG* sessions) {
  const bool is_number =
      *sessions != CK_UNAVAILABLE_INFORMATION && *sessions != CK_EFFECTIVELY_INFINITE;
  if (is_number && *sessions >= workers) *sessions -= workers;
}

}  // namespace

CK_RV Adapter::GetSlotList(CK_SLOT_ID* list, CK_ULONG* count) {
  return WithSlots([&](Slots& slots) { return slots.GetSlotList(list, count); });
}

CK_RV Adapter::GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  return WithSlots([&](Slots& slots) { return slots.GetSlotInfo(slot, info); });
}

CK_RV Adapter::GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  return WithSlots([&](Slots& slots) {
    const CK_RV result = slots.GetTokenInfo(slot, info);
    if (result == CKR_OK) DiscountWorkers(slot, info);
    return result;
  });
}

void Adapter::DiscountWorkers(CK_SLOT_ID slot, CK_TOKEN_INFO* info) const {
  CK_ULONG workers = 0;
  CK_ULONG writing_workers = 0;
  for (const auto& [handle, session] : sessions_) {
    if (session.slot != slot || !session.operation.worker().is_open()) continue;
    ++workers;
    if ((session.operation.worker().flags() & CKF_RW_SESSION) != 0) ++writing_workers;
  }
  Discount(workers, &info->ulSessionCount);
  Discount(writing_workers, &info->ulRwSessionCount);
}

CK_RV Adapter::GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  return WithSlots([&](Slots& slots) { return slots.GetMechanismList(slot, list, count); });
}

CK_RV Adapter::PollSlotEvent(CK_SLOT_ID* slot) {
  return WithSlots([&](Slots& slots) -> CK_RV {
    if (slot == nullptr) return CKR_ARGUMENTS_BAD;
    CK_SLOT_ID changed = 0;
    const CK_RV result = backend_->functions.C_WaitForSlotEvent(CKF_DONT_BLOCK, &changed, nullptr);
    if (result != CKR_OK) return result;
    if (slots.Check(changed) != CKR_OK) return CKR_NO_EVENT;
    *slot = changed;
    return CKR_OK;
  });
}

CK_RV Adapter::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                           CK_SESSION_HANDLE* session) {
  if (session == nullptr) return backend_ ? CKR_ARGUMENTS_BAD : CKR_CRYPTOKI_NOT_INITIALIZED;
  return ForwardForSlot(slot, [&](const CK_FUNCTION_LIST& inner) -> CK_RV {
    CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
    const CK_RV result = inner.C_OpenSession(slot, flags, application, notify, &handle);
    if (result != CKR_OK) return result;
    if (handle == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
    // A handle that the module gives out again belonged to a session that it has lost.
    sessions_.erase(handle);
    sessions_.try_emplace(handle, inner, handle, slot, flags);
    *session = handle;
    return CKR_OK;
  });
}

CK_RV Adapter::CloseSession(CK_SESSION_HANDLE session) {
  const CK_RV result = WithSession(session, [&](Session& state) {
    state.operation.Close();
    return backend_->functions.C_CloseSession(session);
  });
  sessions_.erase(session);
  return result;
}

CK_RV Adapter::CloseAllSessions(CK_SLOT_ID slot) {
  return ForwardForSlot(slot, [&](const CK_FUNCTION_LIST& inner) {
    for (auto entry = sessions_.begin(); entry != sessions_.end();) {
      Session& session = entry->second;
      if (session.slot != slot) {
        ++entry;
        continue;
      }
      session.operation.Close();
      entry = sessions_.erase(entry);
    }
    return inner.C_CloseAllSessions(slot);
  });
}

CK_RV Adapter::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin,
                     CK_ULONG pin_size) {
  return WithSession(session, [&](Session& state) {
    CK_SESSION_HANDLE target = session;
    // A login for one operation goes where that operation is.
    if (user == CKU_CONTEXT_SPECIFIC) target = state.operation.ActiveSession().value_or(session);
    return backend_->functions.C_Login(target, user, pin, pin_size);
  });
}

CK_RV Adapter::Logout(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& current) {
    // The token's private session objects and operations end with the login.
    for (auto& [handle, state] : sessions_) {
      if (state.slot != current.slot) continue;
      state.derived = CK_INVALID_HANDLE;
      state.operation.Close();
    }
    return backend_->functions.C_Logout(session);
  });
}

CK_RV Adapter::GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                                 CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (attributes == nullptr && count != 0) return CKR_ARGUMENTS_BAD;
    return GetAttributes(backend_->functions, state.slot, session, object, {attributes, count});
  });
}

CK_RV Adapter::DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  return WithSession(session, [&](Session&) {
    // Its handle may come back for something else.
    for (auto& [handle, state] : sessions_) {
      if (state.derived == object) state.derived = CK_INVALID_HANDLE;
    }
    return backend_->functions.C_DestroyObject(session, object);
  });
}

CK_RV Adapter::FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes,
                               CK_ULONG count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (attributes == nullptr && count != 0) return CKR_ARGUMENTS_BAD;
    state.search.reset();
    Search search;
    const CK_RV result = Search::Run(backend_->functions, session, {attributes, count}, &search);
    if (result == CKR_OK) state.search = std::move(search);
    return result;
  });
}

CK_RV Adapter::FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                           CK_ULONG* count) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (count == nullptr || (objects == nullptr && room != 0)) return CKR_ARGUMENTS_BAD;
    if (!state.search) return CKR_OPERATION_NOT_INITIALIZED;
    *count = state.search->Next(objects, room);
    return CKR_OK;
  });
}

CK_RV Adapter::FindObjectsFinal(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    if (!state.search) return CKR_OPERATION_NOT_INITIALIZED;
    state.search.reset();
    return CKR_OK;
  });
}

CK_RV Adapter::DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism,
                         CK_OBJECT_HANDLE base_key, CK_ATTRIBUTE* attributes, CK_ULONG count,
                         CK_OBJECT_HANDLE* key) {
  return WithSession(session, [&](Session& state) -> CK_RV {
    const CK_FUNCTION_LIST& inner = backend_->functions;
    if (mechanism == nullptr || key == nullptr) return CKR_ARGUMENTS_BAD;
    if (count != 0) {
      return inner.C_DeriveKey(session, mechanism, base_key, attributes, count, key);
    }
    if (const auto previous = std::exchange(state.derived, CK_INVALID_HANDLE);
        previous != CK_INVALID_HANDLE) {
      inner.C_DestroyObject(session, previous);
    }
    const CK_RV result = DeriveReadableKey(inner, session, *mechanism, base_key, &state.derived);
    if (result == CKR_OK) *key = state.derived;
    return result;
  });
}

}  // namespace kelvrin::adapter
