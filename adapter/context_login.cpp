#include "adapter/context_login.h"

#include "adapter/search_memory.h"

namespace kelvrin::adapter {
namespace {

// Whether the module knows no such logins, and so has not looked at the PIN.
bool IsUnknown(CK_RV result) {
  return result == CKR_USER_TYPE_INVALID || result == CKR_USER_ALREADY_LOGGED_IN;
}

}  // namespace

void ContextLogin::Keep(const CK_BYTE* pin, CK_ULONG size) {
  Wipe();
  const std::optional<std::string> token = ReadTokenIdentity(inner_, slot_);
  if (!token) return;
  kept_->pin.Keep(pin, size);
  kept_->token = token;
}

// Whether there is a PIN, this token has accepted it, and a wrong one would not be the last.
bool ContextLogin::IsUsable() const {
  if (!has_pin() || ReadTokenIdentity(inner_, slot_) != kept_->token) return false;
  CK_TOKEN_INFO info = {};
  return inner_.C_GetTokenInfo(slot_, &info) == CKR_OK &&
         (info.flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) == 0;
}

CK_RV ContextLogin::LogIn(CK_SESSION_HANDLE session) {
  CK_RV result = CKR_USER_NOT_LOGGED_IN;
  if (IsUsable()) {
    KeptPin& pin = kept_->pin;
    result = inner_.C_Login(session, CKU_CONTEXT_SPECIFIC, pin.data(), pin.size());
  }
  if (result == CKR_OK || IsUnknown(result)) return CKR_OK;
  Wipe();
  wants_logout_ = true;
  return result;
}

}  // namespace kelvrin::adapter
