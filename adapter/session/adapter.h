// The adapter: one module behind it, brought up and ended, and the sessions of its one caller.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "adapter/config/config.h"
#include "adapter/session/session.h"
#include "adapter/slots/slots.h"

namespace kelvrin::adapter {

// What stands behind an adapter.
struct Backend {
  Config config;
  CK_FUNCTION_LIST functions = {};  // complete: no entry is null
};

// The functions answer as those of the same name in the standard do, with the differences that
// their units tell (Slots, TokenObjects, KeyOperation, GetAttributes, DeriveReadableKey). Pointers
// that the caller always gives are not tested. Between Finalize and Initialize everything but
// Initialize answers CKR_CRYPTOKI_NOT_INITIALIZED. Not synchronised: function_list.cpp lets one
// call in at a time.
//
// A token set up on one card never reaches another: a session's life ends with its token, and every
// later call on it is CKR_TOKEN_NOT_PRESENT without reaching the module.
class Adapter {
 public:
  // `open` reads the configuration and loads the module; it is called by each Initialize and may
  // throw SetupError.
  explicit Adapter(std::function<Backend()> open) : open_(std::move(open)) {}

  // `is_setup`: the caller has just got the function list, so that this is a set-up, which chooses
  // a slot; otherwise it means the token of the latest set-up. A SetupError's line goes to standard
  // error, its result is returned.
  CK_RV Initialize(bool is_setup);
  // Logs out, closes the sessions and finalises what was initialised here; when the module refuses
  // that, the next Initialize does it.
  CK_RV Finalize();
  // The module's own information, in the version of the adapter's functions.
  CK_RV GetInfo(CK_INFO* info) const;

  CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count);
  CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info);
  CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info);
  CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count);
  CK_RV GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info);

  // Read-only where the module refuses a read-write session.
  CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session);
  CK_RV CloseSession(CK_SESSION_HANDLE session);
  CK_RV CloseAllSessions(CK_SLOT_ID slot);
  CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info);
  CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG pin_size);
  CK_RV Logout(CK_SESSION_HANDLE session);

  CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                    CK_ULONG* count);
  CK_RV FindObjectsFinal(CK_SESSION_HANDLE session);
  CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);

  CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);
  CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature,
             CK_ULONG* signature_size);
  CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);
  CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* plaintext,
                CK_ULONG* plaintext_size);
  CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base_key,
                  CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key);

 private:
  // Calls action(Session&) and ends the token's life when the result says that it is gone.
  template <typename Action>
  CK_RV WithSession(CK_SESSION_HANDLE session, const Action& action);
  template <typename Action>
  CK_RV WithSlots(const Action& action);

  CK_RV InitializeInner();
  CK_RV Open(CK_SLOT_ID slot, CK_FLAGS* flags, CK_SESSION_HANDLE* inner);
  CK_RV OpenOnToken(CK_SLOT_ID slot, CK_FLAGS flags, CK_SESSION_HANDLE* session);
  CK_RV OpenAbsent(CK_SESSION_HANDLE* session);
  CK_SESSION_HANDLE Keep(const std::shared_ptr<TokenLife>& life, CK_SESSION_HANDLE inner,
                         CK_FLAGS flags);
  std::shared_ptr<TokenLife> LifeOf(CK_SLOT_ID slot, const TokenIdentity& identity);
  CK_RV Begin(CK_SESSION_HANDLE session, OperationKind kind, const CK_MECHANISM& mechanism,
              CK_OBJECT_HANDLE key);
  CK_RV Run(CK_SESSION_HANDLE session, OperationKind kind, const CK_BYTE* input,
            CK_ULONG input_size, CK_BYTE* output, CK_ULONG* output_size);
  CK_RV LogOut(Session& current);
  CK_RV DeriveReadable(Session& state, const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE base_key,
                       CK_OBJECT_HANDLE* key);
  bool CloseIdleWorkers();
  void NoteHandle(CK_SESSION_HANDLE inner);
  void NoteToken(CK_SLOT_ID slot, const TokenIdentity* seen);
  void EndLife(TokenLife& life);
  std::optional<TokenIdentity> TokenIn(CK_SLOT_ID slot) const;

  std::function<Backend()> open_;
  std::unique_ptr<Backend> backend_;  // null while not initialised
  bool is_ours_ = false;              // the module was initialised here
  // The functions of a module that was initialised here and refused to be finalised.
  std::optional<CK_FUNCTION_LIST> unfinished_;
  std::optional<TokenIdentity> meant_;  // the token that the latest set-up chose
  std::unique_ptr<Slots> slots_;
  Sessions sessions_;
  CK_SESSION_HANDLE last_handle_ = 0;
  // The module was seen to keep sessions over a removal: a session that answers is no proof then.
  bool keeps_sessions_ = false;
};

}  // namespace kelvrin::adapter
