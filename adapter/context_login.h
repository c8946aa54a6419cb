// The login that some keys want for each single operation.
#ifndef KELVRIN_ADAPTER_CONTEXT_LOGIN_H_
#define KELVRIN_ADAPTER_CONTEXT_LOGIN_H_

#include <p11-kit/pkcs11.h>

#include <optional>
#include <string>

#include "adapter/kept_pin.h"

namespace kelvrin::adapter {

// Keys with CKA_ALWAYS_AUTHENTICATE want the PIN again between the start of an operation and the
// operation itself. A caller that logs in once does not do that: the adapter keeps the PIN of a
// login that succeeded and does it. It never tries a PIN twice: what failed once is wiped.
class ContextLogin {
 public:
  // `inner` must outlive the object.
  ContextLogin(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot) : inner_(inner), slot_(slot) {}

  // Keeps the PIN of a login that the module has just accepted. A null pointer stands for a PIN
  // that is entered at the reader.
  void Keep(const CK_BYTE* pin, CK_ULONG size);

  void Wipe();

  bool has_pin() const { return pin_.has_pin(); }

  // Logs in for the operation that was started on `session`. On failure the PIN is wiped. Where
  // another token is in the slot than the one that accepted the PIN, or where it has one try left,
  // the PIN is wiped unused, and the result is CKR_USER_NOT_LOGGED_IN.
  CK_RV LogIn(CK_SESSION_HANDLE session);

 private:
  bool IsNearlyLocked() const;

  const CK_FUNCTION_LIST& inner_;
  CK_SLOT_ID slot_;
  KeptPin pin_;
  std::optional<std::string> token_;  // whose PIN it is
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CONTEXT_LOGIN_H_
