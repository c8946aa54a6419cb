#include "adapter/context_login.h"

#include "adapter/search_memory.h"

namespace kelvrin::adapter {

void ContextLogin::Keep(const CK_BYTE* pin, CK_ULONG size) {
  token_ = ReadTokenIdentity(inner_, slot_);
  if (token_) {
    pin_.Keep(pin, size);
  } else {
    pin_.Wipe();
  }
}

void ContextLogin::Wipe() {
  pin_.Wipe();
  token_.reset();
}

// Whether a wrong PIN now would be the last one.
bool ContextLogin::IsNearlyLocked() const {
  CK_TOKEN_INFO info = {};
  return inner_.C_GetTokenInfo(slot_, &info) != CKR_OK ||
         (info.flags & (CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED)) != 0;
}

CK_RV ContextLogin::LogIn(CK_SESSION_HANDLE session) {
  if (ReadTokenIdentity(inner_, slot_) != token_ || IsNearlyLocked()) {
    Wipe();
    return CKR_USER_NOT_LOGGED_IN;
  }
  const CK_RV result = inner_.C_Login(session, CKU_CONTEXT_SPECIFIC, pin_.data(), pin_.size());
  if (result != CKR_OK) Wipe();
  return result;
}

}  // namespace kelvrin::adapter
