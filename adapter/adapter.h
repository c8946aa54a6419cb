// The adapter: one module behind it, initialised and finalised, and every function that it changes.
#ifndef KELVRIN_ADAPTER_ADAPTER_H_
#define KELVRIN_ADAPTER_ADAPTER_H_

#include <p11-kit/pkcs11.h>

#include <functional>
#include <memory>
#include <utility>

#include "adapter/config.h"
#include "adapter/inner_use.h"
#include "adapter/session.h"
#include "adapter/slots.h"

namespace kelvrin::adapter {

// What stands behind an adapter.
struct Backend {
  Config config;
  CK_FUNCTION_LIST functions = {};  // complete: no entry is null
  SearchMemory::Now now = SearchMemory::Clock::now;
};

// The functions answer as those of the same name in the standard do, with the differences that
// their units tell (Slots, Search, KeyOperation, GetAttributes, DeriveReadableKey). Between
// Finalize and Initialize everything but Initialize answers CKR_CRYPTOKI_NOT_INITIALIZED, and a
// session that was not opened here is CKR_SESSION_HANDLE_INVALID. Not synchronised:
// function_list.cpp lets one call in at a time.
class Adapter {
 public:
  // `open` reads the configuration and loads the module; it is called by each Initialize and may
  // throw SetupError.
  // `uses` counts the users of the module with other adapters and outlives this one; null: alone.
  explicit Adapter(std::function<Backend()> open, ModuleUses* uses = nullptr)
      : open_(std::move(open)), use_(uses) {}

  // A SetupError's line goes to standard error, its result is returned.
  CK_RV Initialize(CK_C_INITIALIZE_ARGS* arguments);
  // The last of those that use the module finalises it; the others close what they have opened.
  CK_RV Finalize(const void* reserved);
  // To be called before any other function: learns what other adapters have done since. When one
  // has brought the module up anew, this one is not initialised any more; when one has changed
  // objects, what was learned of them is forgotten. Sessions whose handles the module has given to
  // others are gone.
  void CatchUp();
  // The module's own information, in the version of the adapter's functions.
  CK_RV GetInfo(CK_INFO* info) const;

  CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count);
  CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info);
  CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info);
  CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count);
  // Never waits; a caller that wants to asks again. An event that another adapter was told is told
  // here too.
  CK_RV PollSlotEvent(CK_SLOT_ID* slot);

  CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session);
  CK_RV CloseSession(CK_SESSION_HANDLE session);
  CK_RV CloseAllSessions(CK_SLOT_ID slot);
  // What signing and decrypting leave on another session is asked for there; CKR_STATE_UNSAVEABLE
  // where the module's state alone would not bring the operation back.
  CK_RV GetOperationState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG* size);
  // Brings the operation back on the caller's own session; one that was under way is over.
  CK_RV SetOperationState(CK_SESSION_HANDLE session, CK_BYTE* state, CK_ULONG size,
                          CK_OBJECT_HANDLE encryption_key, CK_OBJECT_HANDLE authentication_key);
  CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG pin_size);
  CK_RV Logout(CK_SESSION_HANDLE session);

  CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV SetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);
  CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                    CK_ULONG* count);
  CK_RV FindObjectsFinal(CK_SESSION_HANDLE session);
  CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base_key,
                  CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key);

  // Forgets what was learned of the tokens' objects: something may have changed them.
  void ForgetObjects();

  // Wipes the PIN of the session's token, or of the one in the slot: it may have another now.
  void WipePinOf(CK_SESSION_HANDLE session);
  void WipePinIn(CK_SLOT_ID slot);

  // From now on the handle means its object, whatever that is: the caller has just made it, or gave
  // it another CKA_ID.
  void TakeAsItIs(CK_OBJECT_HANDLE object);

  // Whether it is initialised and the rule applies.
  bool Has(Rule rule) const { return backend_ && backend_->config.rules.Has(rule); }

  // Begins signing or decrypting, which takes the place of what SetOperationState has brought back.
  CK_RV BeginOperation(CK_SESSION_HANDLE session, OperationKind kind, CK_MECHANISM* mechanism,
                       CK_OBJECT_HANDLE key);

  // Calls action(KeyOperation&) for the session's signing and decrypting. Where the operation found
  // no PIN that it could use, the token is logged out, so that its user is asked for the PIN again.
  template <typename Action>
  CK_RV WithOperation(CK_SESSION_HANDLE session, const Action& action) {
    return WithSession(session,
                       [&](Session& state) { return RunOperation(state, session, action); });
  }

  // Calls forward(functions) where the operation is one that was brought back, and otherwise what
  // WithOperation does.
  template <typename Forward, typename Action>
  CK_RV WithOperation(CK_SESSION_HANDLE session, const Forward& forward, const Action& action) {
    return WithSession(session, [&](Session& state) {
      return state.has_restored ? forward(backend_->functions)
                                : RunOperation(state, session, action);
    });
  }

  // Calls action(functions) to hand a call on to the module: one that belongs to a session, to a
  // slot, or to neither.
  template <typename Action>
  CK_RV ForwardForSession(CK_SESSION_HANDLE session, const Action& action) {
    return WithSession(session, [&](Session&) { return action(backend_->functions); });
  }
  template <typename Action>
  CK_RV ForwardForSlot(CK_SLOT_ID slot, const Action& action) {
    return WithSlots([&](Slots& slots) {
      const CK_RV result = slots.Check(slot);
      return result == CKR_OK ? action(backend_->functions) : result;
    });
  }

 private:
  template <typename Action>
  CK_RV WithSession(CK_SESSION_HANDLE session, const Action& action) {
    if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
    const auto found = sessions_.find(session);
    if (found == sessions_.end()) return CKR_SESSION_HANDLE_INVALID;
    return action(found->second);
  }
  template <typename Action>
  CK_RV RunOperation(Session& state, CK_SESSION_HANDLE session, const Action& action) {
    const CK_RV result = action(state.operation);
    if (use_.sessions().HasLosses()) SettleLosses(state, session);
    if (state.token.login.TakeLogoutRequest()) LogOut(state, session);
    return result;
  }
  template <typename Action>
  CK_RV WithSlots(const Action& action) {
    if (!backend_) return CKR_CRYPTOKI_NOT_INITIALIZED;
    return action(*slots_);
  }

  CK_RV InitializeInner(Backend& backend, CK_C_INITIALIZE_ARGS* caller);
  CK_RV DeriveReadable(Session& state, CK_SESSION_HANDLE session, const CK_MECHANISM& mechanism,
                       CK_OBJECT_HANDLE base_key, CK_OBJECT_HANDLE* key);
  CK_RV LogOut(Session& current, CK_SESSION_HANDLE handle);
  bool CloseIdleWorkers();
  void DropLostSessions();
  void SettleLosses(const Session& taker, CK_SESSION_HANDLE handle);
  bool HasUser(CK_SESSION_HANDLE session) const;
  bool HasSessionsOn(CK_SLOT_ID slot) const;
  void ForgetOwnObjects();
  void CloseSessions();
  void Reset();
  void ForgetToken(TokenState& token);
  void ForgetClosed(CK_SLOT_ID slot, TokenState& token);
  void DiscountWorkers(CK_SLOT_ID slot, CK_TOKEN_INFO* info) const;

  std::function<Backend()> open_;
  std::unique_ptr<Backend> backend_;  // null while not initialised
  std::unique_ptr<Slots> slots_;
  InnerUse use_;
  Tokens tokens_;
  Sessions sessions_;    // they refer to their tokens, and to what `use_` counts
  unsigned losses_ = 0;  // of sessions, as far as they are known
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ADAPTER_H_
