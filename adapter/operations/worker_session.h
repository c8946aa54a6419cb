// A session of the adapter's own on which a caller's private-key operations run.
#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>
#include <utility>

namespace kelvrin::adapter {

// Called with each session handle that the module has just given out, before it is used: the module
// may have lost the session that had it. Returns whether the opener's token still lives.
using NewHandle = std::function<bool(CK_SESSION_HANDLE)>;

// Many modules leave an operation open after a failed C_Sign and refuse the next one; a session
// that can be closed at any time has no such past. The login state is the token's, so a worker is
// logged in when its caller is. Opened when first needed. The owner closes it: there is no
// destructor that would, since the session may be gone with the module.
//
// Where the token has no session left, the caller's own session does the work.
class WorkerSession {
 public:
  // The worker of the caller's session `caller`, which was opened on `slot` with `flags`. `inner`
  // must outlive the object.
  WorkerSession(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot, CK_FLAGS flags,
                CK_SESSION_HANDLE caller, NewHandle note)
      : inner_(&inner), slot_(slot), flags_(flags), caller_(caller), note_(std::move(note)) {}

  // Starts an operation: opens the worker when it is closed and hands its handle to `start`. When
  // that finds an operation still active or the worker gone while the caller's session still
  // answers, closes, opens and tries once more. On failure the worker is closed.
  template <typename Start>
  CK_RV Begin(const Start& start) {
    const bool was_used = is_open();
    CK_RV result = TryBegin(start);
    const bool may_help = (was_used || is_borrowing_) && IsStale(result);
    if (may_help && CallerAnswers()) result = TryBegin(start);
    return result;
  }

  // Ends whatever is going on.
  void Close();

  // Forgets the session without a call: the module has lost it.
  void Drop() { own_ = CK_INVALID_HANDLE; }

  // Whether the caller's session answers, which is proof that its token is still there.
  bool CallerAnswers() const;

  bool is_open() const { return own_ != CK_INVALID_HANDLE; }
  CK_SESSION_HANDLE handle() const { return is_open() ? own_ : caller_; }

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
  NewHandle note_;
  bool is_borrowing_ = false;  // the last operation ran on the caller's session
  CK_SESSION_HANDLE own_ = CK_INVALID_HANDLE;
};

}  // namespace kelvrin::adapter
