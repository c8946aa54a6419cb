#include "adapter/operations/worker_session.h"

#include <array>

#include "encoding/wipe.h"

namespace kelvrin::adapter {

CK_RV WorkerSession::Open() {
  if (is_open()) return CKR_OK;
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  const CK_RV result = inner_->C_OpenSession(slot_, flags_, nullptr, nullptr, &handle);
  is_borrowing_ = result == CKR_SESSION_COUNT;
  if (is_borrowing_) return CKR_OK;
  if (result != CKR_OK) return result;
  if (handle == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
  if (!note_(handle)) {
    inner_->C_CloseSession(handle);
    return CKR_TOKEN_NOT_PRESENT;
  }
  own_ = handle;
  return CKR_OK;
}

bool WorkerSession::CallerAnswers() const {
  CK_SESSION_INFO info = {};
  return inner_->C_GetSessionInfo(caller_, &info) == CKR_OK;
}

void WorkerSession::Close() {
  if (is_open()) {
    inner_->C_CloseSession(own_);
    own_ = CK_INVALID_HANDLE;
  } else if (is_borrowing_) {
    EndOperations();
  }
}

// The caller's session cannot be closed: what is open on it is brought to an end.
void WorkerSession::EndOperations() {
  std::array<CK_BYTE, 4096> result = {};
  CK_ULONG size = result.size();
  inner_->C_SignFinal(caller_, result.data(), &size);
  size = result.size();
  inner_->C_DecryptFinal(caller_, result.data(), &size);
  encoding::Wipe(result.data(), result.size());
}

}  // namespace kelvrin::adapter
