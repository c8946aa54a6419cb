// How each of the adapter's functions gets at its session or slot.
#pragma once

#include "adapter/session/adapter.h"

namespace kelvrin::adapter {

// Whether a call's result says that the session's token is gone, and the session with it.
inline bool MeansGone(CK_RV result) {
  switch (result) {
    case CKR_TOKEN_NOT_PRESENT:
    case CKR_DEVICE_REMOVED:
    case CKR_TOKEN_NOT_RECOGNIZED:
    case CKR_SESSION_HANDLE_INVALID:
    case CKR_SESSION_CLOSED:
    case CKR_CRYPTOKI_NOT_INITIALIZED:
      return true;
    default:
      return false;
  }
}

template <typename Action>
CK_RV Adapter::WithSession(CK_SESSION_HANDLE session, const Action& action) {
  if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return CKR_SESSION_HANDLE_INVALID;
  TokenLife& life = *found->second.token;
  if (!life.is_over && keeps_sessions_ && TokenIn(life.slot()) != life.identity) EndLife(life);
  if (life.is_over) return CKR_TOKEN_NOT_PRESENT;
  const CK_RV result = action(found->second);
  if (MeansGone(result)) EndLife(life);
  return result;
}

template <typename Action>
CK_RV Adapter::WithSlots(const Action& action) {
  return backend_ ? action(*slots_) : CK_RV{CKR_CRYPTOKI_NOT_INITIALIZED};
}

}  // namespace kelvrin::adapter
