// The login that some keys want for each single operation.
#ifndef KELVRIN_ADAPTER_CONTEXT_LOGIN_H_
#define KELVRIN_ADAPTER_CONTEXT_LOGIN_H_

#include <p11-kit/pkcs11.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "adapter/kept_pin.h"

namespace kelvrin::adapter {

// The PIN that a token has accepted.
struct TokenPin {
  void Wipe() {
    pin.Wipe();
    token.reset();
  }

  KeptPin pin;
  std::optional<std::string> token;  // whose PIN it is
};

// Keys with CKA_ALWAYS_AUTHENTICATE want the PIN again between the start of an operation and the
// operation itself. A caller that logs in once does not do that: the adapter keeps the PIN of a
// login that succeeded and does it. It never tries a PIN twice: what failed once is wiped. A caller
// gives his PIN only when nobody is logged in: where such a key finds no PIN, the token is to be
// logged out.
class ContextLogin {
 public:
  // `inner` must outlive the object. `pin` may be shared with others who use the same token.
  ContextLogin(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
               std::shared_ptr<TokenPin> pin = std::make_shared<TokenPin>())
      : inner_(inner), slot_(slot), kept_(std::move(pin)) {}

  // Keeps the PIN of a login that the module has just accepted. A null pointer stands for a PIN
  // that is entered at the reader.
  void Keep(const CK_BYTE* pin, CK_ULONG size);

  void Wipe() { kept_->Wipe(); }

  bool has_pin() const { return kept_->pin.has_pin(); }

  // Logs in for the operation that was started on `session`; also CKR_OK where the module knows no
  // such logins and leaves it to the operation what becomes of it. On failure the PIN is wiped, and
  // the token is to be logged out. Without a PIN the result is CKR_USER_NOT_LOGGED_IN; so it is
  // where another token is in the slot than the one that accepted the PIN, or where it has one try
  // left: the PIN is wiped unused then.
  CK_RV LogIn(CK_SESSION_HANDLE session);

  // Whether the token is to be logged out; true once after each login that failed.
  bool TakeLogoutRequest() { return std::exchange(wants_logout_, false); }

 private:
  bool IsUsable() const;

  const CK_FUNCTION_LIST& inner_;
  CK_SLOT_ID slot_;
  std::shared_ptr<TokenPin> kept_;  // never null
  bool wants_logout_ = false;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CONTEXT_LOGIN_H_
