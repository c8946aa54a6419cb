// Slots, sessions and logins, and when a token's life is over.
#include "adapter/session/adapter.h"

#include <algorithm>

#include "adapter/session/with_session.h"

namespace kelvrin::adapter {
CK_RV Adapter::GetSlotList(CK_BBOOL /*token_present*/, CK_SLOT_ID* list, CK_ULONG* count) {
  return WithSlots([&](Slots& slots) {
    const CK_RV result = slots.GetSlotList(list, count);
    if (result != CKR_OK || list != nullptr) return result;
    const Slots::Look& look = slots.last_look();
    for (const auto& [slot, token] : look.tokens) NoteToken(slot, &token);
    for (const auto& [handle, session] : sessions_) {
      const CK_SLOT_ID slot = session.token->slot();
      const auto& present = look.present;
      if (std::find(present.begin(), present.end(), slot) == present.end())
        NoteToken(slot, nullptr);
    }
    return result;
  });
}

// The slot holds this token, or none when that is null: the lives of others on it are over.
void Adapter::NoteToken(CK_SLOT_ID slot, const TokenIdentity* seen) {
  for (auto& [handle, session] : sessions_) {
    TokenLife& life = *session.token;
    if (life.is_over || life.slot() != slot || (seen != nullptr && life.identity == *seen))
      continue;
    CK_SESSION_INFO info = {};
    if (backend_->functions.C_GetSessionInfo(session.inner, &info) == CKR_OK) {
      keeps_sessions_ = true;
    }
    EndLife(life);
  }
}

// The token is gone: what was learned and kept goes with it. Nothing is called, since its sessions
// may be another token's by now; those that a module keeps are closed by Finalize.
void Adapter::EndLife(TokenLife& life) {
  life.is_over = true;
  life.pin.Wipe();
  life.objects.Forget();
  for (auto& [handle, session] : sessions_) {
    if (session.token.get() == &life) session.operation.Drop();
  }
}

// The token in the slot now; nothing when the module does not tell.
std::optional<TokenIdentity> Adapter::TokenIn(CK_SLOT_ID slot) const {
  CK_TOKEN_INFO info = {};
  if (backend_->functions.C_GetTokenInfo(slot, &info) != CKR_OK) return std::nullopt;
  return IdentityOf(info);
}

CK_RV Adapter::GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  return WithSlots([&](Slots& slots) { return slots.GetSlotInfo(slot, info); });
}

CK_RV Adapter::GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  return WithSlots([&](Slots& slots) {
    TokenIdentity identity;
    const CK_RV result = slots.GetTokenInfo(slot, info, &identity);
    if (result == CKR_OK) NoteToken(slot, &identity);
    if (MeansGone(result)) NoteToken(slot, nullptr);
    return result;
  });
}

CK_RV Adapter::GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  return WithSlots([&](Slots& slots) { return slots.GetMechanismList(slot, list, count); });
}

CK_RV Adapter::GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info) {
  return WithSlots([&](Slots& slots) { return slots.GetMechanismInfo(slot, type, info); });
}

CK_RV Adapter::OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* /*application*/,
                           CK_NOTIFY /*notify*/, CK_SESSION_HANDLE* session) {
  return WithSlots([&](Slots& slots) {
    CK_RV result = slots.Check(slot);
    if (result == CKR_OK) result = OpenOnToken(slot, flags, session);
    // A re-initialisation succeeds without its card, also where that is pulled just now.
    return MeansGone(result) && slots.meant() != nullptr ? OpenAbsent(session) : result;
  });
}

// Opens a session and looks which token it is on: since the slot was chosen the card may have been
// changed for another.
CK_RV Adapter::OpenOnToken(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE* session) {
  CK_SESSION_HANDLE inner = CK_INVALID_HANDLE;
  const CK_RV result = Open(slot, &flags, &inner);
  if (result != CKR_OK) return result;
  if (inner == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
  NoteHandle(inner);
  const std::optional<TokenIdentity> token = TokenIn(slot);
  if (token != slots_->chosen_token()) {
    backend_->functions.C_CloseSession(inner);
    return CKR_TOKEN_NOT_PRESENT;
  }
  meant_ = *token;
  *session = Keep(LifeOf(slot, *token), inner, flags);
  return CKR_OK;
}

// Opens a session of the module's: once more when it has too many, and read-only when it refuses to
// be written to.
CK_RV Adapter::Open(CK_SLOT_ID slot, CK_FLAGS* flags, CK_SESSION_HANDLE* inner) {
  const auto open = [&](CK_FLAGS how) {
    return backend_->functions.C_OpenSession(slot, how, nullptr, nullptr, inner);
  };
  CK_RV result = open(*flags);
  // The token's sessions are for the caller.
  if (result == CKR_SESSION_COUNT && CloseIdleWorkers()) result = open(*flags);
  const CK_FLAGS read_only = *flags & ~CK_FLAGS{CKF_RW_SESSION};
  if (result == CKR_OK || MeansGone(result) || result == CKR_SESSION_COUNT) return result;
  if (read_only == *flags || open(read_only) != CKR_OK) return result;
  *flags = read_only;
  return CKR_OK;
}

// A session on which there is no token.
CK_RV Adapter::OpenAbsent(CK_SESSION_HANDLE* session) {
  const auto life = std::make_shared<TokenLife>(backend_->functions, backend_->config.rules,
                                                Slots::kAbsent, *slots_->meant());
  life->is_over = true;
  *session = Keep(life, CK_INVALID_HANDLE, 0);
  return CKR_OK;
}

// Keeps a session for the caller; its handle.
CK_SESSION_HANDLE Adapter::Keep(const std::shared_ptr<TokenLife>& life, CK_SESSION_HANDLE inner,
                                CK_FLAGS flags) {
  const TokenLife* const its_life = life.get();
  sessions_.try_emplace(++last_handle_, life, inner, flags,
                        [this, its_life](CK_SESSION_HANDLE given) {
                          NoteHandle(given);
                          return !its_life->is_over;
                        });
  return last_handle_;
}

// The life that the token leads already, or a new one.
std::shared_ptr<TokenLife> Adapter::LifeOf(CK_SLOT_ID slot, const TokenIdentity& identity) {
  for (const auto& [handle, session] : sessions_) {
    const TokenLife& life = *session.token;
    if (!life.is_over && life.slot() == slot && life.identity == identity) return session.token;
  }
  return std::make_shared<TokenLife>(backend_->functions, backend_->config.rules, slot, identity);
}

// A handle that the module gives out again belonged to a session that it has lost, and the workers
// of that slot with it.
void Adapter::NoteHandle(CK_SESSION_HANDLE inner) {
  for (auto& [handle, session] : sessions_) {
    if (session.inner == inner) {
      session.inner = CK_INVALID_HANDLE;
      EndLife(*session.token);
    }
    if (!session.operation.HasWorker(inner)) continue;
    for (auto& [other, neighbour] : sessions_) {
      if (neighbour.token->slot() == session.token->slot()) neighbour.operation.Drop();
    }
  }
}

bool Adapter::CloseIdleWorkers() {
  bool has_closed = false;
  for (auto& [handle, session] : sessions_) {
    if (session.operation.CloseIdleWorker()) has_closed = true;
  }
  return has_closed;
}

CK_RV Adapter::CloseSession(CK_SESSION_HANDLE session) {
  const CK_RV result = WithSession(session, [&](Session& state) {
    state.operation.Close();
    return backend_->functions.C_CloseSession(state.inner);
  });
  // Where the token's life is over a module may have kept the session: Finalize closes it.
  if (result == CKR_OK) sessions_.erase(session);
  return result;
}

CK_RV Adapter::CloseAllSessions(CK_SLOT_ID slot) {
  return WithSlots([&](Slots& slots) {
    const CK_RV result = slots.Check(slot);
    for (auto entry = sessions_.begin(); result == CKR_OK && entry != sessions_.end();) {
      const CK_SESSION_HANDLE handle = entry->first;
      const bool is_there = (entry++)->second.token->slot() == slot;
      if (is_there) CloseSession(handle);
    }
    return result;
  });
}

CK_RV Adapter::GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  return WithSession(session, [&](Session& state) {
    CK_SESSION_INFO answer = {};
    const CK_RV result = backend_->functions.C_GetSessionInfo(state.inner, &answer);
    if (result == CKR_OK) *info = answer;
    return result;
  });
}

CK_RV Adapter::Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin,
                     CK_ULONG pin_size) {
  return WithSession(session, [&](Session& state) {
    // A login for one operation goes where that operation is.
    if (user == CKU_CONTEXT_SPECIFIC) {
      const CK_SESSION_HANDLE target = state.operation.ActiveSession().value_or(state.inner);
      return backend_->functions.C_Login(target, user, pin, pin_size);
    }
    const CK_RV result = backend_->functions.C_Login(state.inner, user, pin, pin_size);
    TokenLife& life = *state.token;
    if (result == CKR_OK) life.has_login = true;
    if (result == CKR_OK && user == CKU_USER && backend_->config.rules.Has(Rule::kContextLogin)) {
      life.pin.Keep(pin, pin_size);
    } else if (result != CKR_USER_ALREADY_LOGGED_IN) {
      // After a failed login the PIN is wiped: the token may have another one now.
      life.pin.Wipe();
    }
    return result;
  });
}

CK_RV Adapter::Logout(CK_SESSION_HANDLE session) {
  return WithSession(session, [&](Session& current) { return LogOut(current); });
}

CK_RV Adapter::LogOut(Session& current) {
  TokenLife& life = *current.token;
  life.pin.Wipe();
  // The token's private session objects and operations end with the login.
  for (auto& [handle, session] : sessions_) {
    if (session.token.get() != &life) continue;
    session.derived.reset();
    session.operation.Close();
  }
  const CK_RV result = backend_->functions.C_Logout(current.inner);
  if (result == CKR_OK) life.has_login = false;
  return result;
}

}  // namespace kelvrin::adapter
