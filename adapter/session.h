// What the adapter keeps for its callers' sessions and their tokens.
#ifndef KELVRIN_ADAPTER_SESSION_H_
#define KELVRIN_ADAPTER_SESSION_H_

#include <p11-kit/pkcs11.h>

#include <map>
#include <memory>
#include <utility>

#include "adapter/context_login.h"
#include "adapter/derived_keys.h"
#include "adapter/key_operation.h"
#include "adapter/search.h"
#include "adapter/session_handles.h"
#include "adapter/token_objects.h"

namespace kelvrin::adapter {

// What all sessions on one token share.
struct TokenState {
  TokenState(const CK_FUNCTION_LIST& inner, const Rules& rules, CK_SLOT_ID slot,
             const SearchMemory::Now& now, std::shared_ptr<TokenPin> pin)
      : objects(inner, rules, slot, now), login(inner, slot, std::move(pin)) {}

  // After anything that may have changed who is logged in or which token is there.
  void Forget() {
    objects.Forget();
    login.Wipe();
  }

  TokenObjects objects;
  ContextLogin login;
};

// By slot.
using Tokens = std::map<CK_SLOT_ID, TokenState>;

struct Session {
  Session(TokenState& its_token, SessionHandles& handles, CK_SESSION_HANDLE handle, CK_FLAGS flags)
      : token(its_token),
        held(handles, its_token.objects.slot()),
        operation(its_token.objects, its_token.login, handles, handle, flags) {
    held.Take(handle);
  }

  CK_SLOT_ID slot() const { return token.objects.slot(); }

  TokenState& token;
  HeldSession held;  // not any more when the module has given the handle to somebody else
  KeyOperation operation;
  // An operation that was saved has been brought back; it is on the session itself, and `operation`
  // has none until it begins one.
  bool has_restored = false;
  Searches searches;
  DerivedKeys derived;
};

// By the session's handle, which is the module's own.
using Sessions = std::map<CK_SESSION_HANDLE, Session>;

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SESSION_H_
