// A session of the adapter's own on which a caller's private-key operations run.
#ifndef KELVRIN_ADAPTER_WORKER_SESSION_H_
#define KELVRIN_ADAPTER_WORKER_SESSION_H_

#include <p11-kit/pkcs11.h>

#include "adapter/session_handles.h"

namespace kelvrin::adapter {

// Many modules leave an operation open after a failed C_Sign and refuse the next one; a session
// that can be closed at any time has no such past. The login state is the token's, so a worker is
// logged in when its caller is. Opened when first needed. The owner closes it: there is no
// destructor that would, since the session may be gone with the module.
//
// Where the token has no session left, or no worker is wanted, the caller's own session does the
// work.
class WorkerSession {
 public:
  // The worker of the caller's session `caller`, which was opened on `slot` with `flags`. `inner`
  // and `handles` must outlive the object.
  WorkerSession(const CK_FUNCTION_LIST& inner, SessionHandles& handles, CK_SLOT_ID slot,
                CK_FLAGS flags, CK_SESSION_HANDLE caller, bool is_wanted)
      : inner_(&inner),
        slot_(slot),
        flags_(flags),
        caller_(caller),
        is_wanted_(is_wanted),
        own_(handles, slot) {}

  // Starts an operation: opens the worker when it is closed and hands its handle to `start`. When
  // that finds an operation still active or the session gone, closes, opens and tries once more. On
  // failure the worker is closed.
  template <typename Start>
  CK_RV Begin(const Start& start) {
    const bool was_open = is_open();
    CK_RV result = TryBegin(start);
    const bool may_help = is_wanted_ && (was_open || has_borrowed_);
    if (may_help && IsStale(result)) result = TryBegin(start);
    return result;
  }

  // Ends whatever is going on.
  void Close();

  // No longer once the module has given its handle to somebody else.
  bool is_open() const { return is_borrowing_ || is_own(); }
  // Whether it is a session beside the caller's.
  bool is_own() const { return own_.is_held(); }
  CK_FLAGS flags() const { return flags_; }
  CK_SESSION_HANDLE handle() const { return is_borrowing_ ? caller_ : own_.handle(); }

 private:
  static bool IsStale(CK_RV result) {
    return result == CKR_OPERATION_ACTIVE || result == CKR_SESSION_HANDLE_INVALID ||
           result == CKR_SESSION_CLOSED;
  }

  template <typename Start>
  CK_RV TryBegin(const Start& start) {
    CK_RV result = Open();
    if (result == CKR_OK) result = start(handle());
    if (result != CKR_OK) Close();
    return result;
  }

  CK_RV Open();
  void EndOperations();

  const CK_FUNCTION_LIST* inner_;
  CK_SLOT_ID slot_;
  CK_FLAGS flags_;
  CK_SESSION_HANDLE caller_;
  bool is_wanted_;
  bool has_borrowed_ = false;  // the last one was the caller's
  bool is_borrowing_ = false;  // the open one is
  HeldSession own_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_WORKER_SESSION_H_
