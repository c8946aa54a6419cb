#include "adapter/adapter.h"

#include <algorithm>
#include <utility>

namespace kelvrin::adapter {
namespace {

void Discount(CK_ULONG workers, CK_ULONG* sessions) {
  const bool is_number =
      *sessions != CK_UNAVAILABLE_INFORMATION && *sessions != CK_EFFECTIVELY_INFINITE;
  if (is_number && *sessions >= workers) *sessions -= workers;
}

// Whether a login that failed so was refused before its PIN was looked at: who was logged in still
// is.
bool ChangesNothing(CK_RV result) {
  switch (result) {
    case CKR_USER_ALREADY_LOGGED_IN:
    case CKR_USER_ANOTHER_ALREADY_LOGGED_IN:
    case CKR_USER_TOO_MANY_TYPES:
    case CKR_USER_TYPE_INVALID:
    case CKR_SESSION_READ_ONLY_EXISTS:
    case CKR_ARGUMENTS_BAD:
      return true;
    default:
      return false;
  }
}

}  // namespace

CK_RV Adapter::GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) {
  return WithSlots([&](Slots& slots) { return slots.GetSlotList(token_present, list, count); });
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
    if (session.slot() != slot || !session.operation.worker().is_own()) continue;
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
    const auto tell_next = [&] {
      while (const auto next = use_.NextEvent()) {
        if (slots.CheckEvent(*next) != CKR_OK) continue;
        *slot = *next;
        return true;
      }
      return false;
    };
    // One that another adapter has got from the module.
    if (tell_next()) return CKR_OK;
    CK_SLOT_ID changed = 0;
    const CK_RV result = backend_->functions.C_WaitForSlotEvent(CKF_DONT_BLOCK, &changed, nullptr);
    if (result != CKR_OK) return result;
    if (const auto token = tokens_.find(changed); token != tokens_.end()) {
      token->second.objects.Forget();
    }
    WipePinIn(changed);
    use_.NoteObjectChange();
    use_.NoteEvent(changed);
    return tell_next() ? CKR_OK : CKR_NO_EVENT;
  });
}

CK_RV Adapter::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                           CK_SESSION_HANDLE* session) {
  if (session == nullptr) return backend_ ? CKR_ARGUMENTS_BAD : CKR_CRYPTOKI_NOT_INITIALIZED;
  return ForwardForSlot(slot, [&](const CK_FUNCTION_LIST& inner) -> CK_RV {
    CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
    const auto open = [&] {
      return inner.C_OpenSession(slot, flags, application, notify, &handle);
    };
    CK_RV result = open();
    // The token's sessions are for the caller.
    if (result == CKR_SESSION_COUNT && CloseIdleWorkers()) result = open();
    if (result != CKR_OK) return result;
    if (handle == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
    use_.sessions().Lose(handle);
    sessions_.erase(handle);
    TokenState& token =
        tokens_
            .try_emplace(slot, inner, backend_->config.rules, slot, backend_->now, use_.PinOf(slot))
            .first->second;
    const auto opened = sessions_.try_emplace(handle, token, use_.sessions(), handle, flags).first;
    SettleLosses(opened->second, handle);
    *session = handle;
    return CKR_OK;
  });
}

// A handle that the module gives out again belonged to a session that it has lost. The login may be
// lost with it; or somebody has logged in since, and it is his PIN that is kept.
void Adapter::SettleLosses(const Session& taker, CK_SESSION_HANDLE handle) {
  for (const CK_SLOT_ID slot : use_.sessions().TakeSlotsOfLosses()) {
    if (const auto token = tokens_.find(slot); token != tokens_.end()) {
      token->second.objects.Forget();
    }
    use_.NoteObjectChange();
    if (slot != taker.slot() || !HasUser(handle)) use_.WipePinOf(slot);
  }
}

bool Adapter::HasUser(CK_SESSION_HANDLE session) const {
  CK_SESSION_INFO info = {};
  return backend_->functions.C_GetSessionInfo(session, &info) == CKR_OK &&
         (info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS);
}

bool Adapter::HasSessionsOn(CK_SLOT_ID slot) const {
  return std::any_of(sessions_.begin(), sessions_.end(),
                     [&](const auto& entry) { return entry.second.slot() == slot; });
}

CK_RV Adapter::CloseSession(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& state) {
    TokenState& token = state.token;
    const CK_SLOT_ID slot = state.slot();
    state.operation.Close();
    const CK_RV closed = backend_->functions.C_CloseSession(session);
    sessions_.erase(session);
    ForgetClosed(slot, token);
    return closed;
  });
}

// With sessions their objects are gone, and with a token's last one its login. Another adapter's
// session is one, too.
void Adapter::ForgetClosed(CK_SLOT_ID slot, TokenState& token) {
  token.objects.Forget();
  use_.NoteObjectChange();
  if (!use_.IsCurrent() || !use_.sessions().AreOn(slot)) token.login.Wipe();
}

void Adapter::ForgetToken(TokenState& token) {
  token.Forget();
  use_.NoteObjectChange();
}

bool Adapter::CloseIdleWorkers() {
  bool has_closed = false;
  for (auto& [handle, session] : sessions_) {
    if (session.operation.CloseIdleWorker()) has_closed = true;
  }
  return has_closed;
}

CK_RV Adapter::CloseAllSessions(CK_SLOT_ID slot) {
  return ForwardForSlot(slot, [&](const CK_FUNCTION_LIST& inner) -> CK_RV {
    // The module would close those of others that use it too.
    const bool is_alone = use_.IsAlone();
    for (auto entry = sessions_.begin(); entry != sessions_.end();) {
      Session& session = entry->second;
      if (session.slot() != slot) {
        ++entry;
        continue;
      }
      session.operation.Close();
      if (!is_alone) inner.C_CloseSession(entry->first);
      entry = sessions_.erase(entry);
    }
    const CK_RV result = is_alone ? inner.C_CloseAllSessions(slot) : CKR_OK;
    if (const auto token = tokens_.find(slot); token != tokens_.end()) {
      ForgetClosed(slot, token->second);
    }
    return result;
  });
}

CK_RV Adapter::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin,
                     CK_ULONG pin_size) {
  return WithSession(session, [&](Session& state) {
    // A login for one operation goes where that operation is.
    if (user == CKU_CONTEXT_SPECIFIC) {
      const CK_SESSION_HANDLE target = state.operation.ActiveSession().value_or(session);
      return backend_->functions.C_Login(target, user, pin, pin_size);
    }
    const CK_RV result = backend_->functions.C_Login(session, user, pin, pin_size);
    if (ChangesNothing(result)) return result;
    ForgetToken(state.token);
    const bool keeps_pin = backend_->config.rules.Has(Rule::kContextLogin);
    if (result == CKR_OK && user == CKU_USER && keeps_pin) state.token.login.Keep(pin, pin_size);
    return result;
  });
}

CK_RV Adapter::Logout(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& current) { return LogOut(current, session); });
}

CK_RV Adapter::LogOut(Session& current, CK_SESSION_HANDLE handle) {
  ForgetToken(current.token);
  // The token's private session objects and operations end with the login.
  for (auto& [other, state] : sessions_) {
    if (&state.token != &current.token) continue;
    state.derived.Clear();
    state.operation.Close();
  }
  return backend_->functions.C_Logout(handle);
}

void Adapter::ForgetOwnObjects() {
  for (auto& [slot, token] : tokens_) token.objects.Forget();
}

void Adapter::ForgetObjects() {
  ForgetOwnObjects();
  use_.NoteObjectChange();
}

void Adapter::WipePinOf(CK_SESSION_HANDLE session) {
  const auto found = sessions_.find(session);
  if (found != sessions_.end()) found->second.token.login.Wipe();
}

void Adapter::WipePinIn(CK_SLOT_ID slot) {
  // Another adapter may keep it.
  if (backend_) use_.WipePinOf(slot);
}

}  // namespace kelvrin::adapter
