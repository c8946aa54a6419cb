#include "adapter/worker_session.h"

#include <array>

#include "adapter/bytes.h"

namespace kelvrin::adapter {

CK_RV WorkerSession::Open() {
  if (is_open()) return CKR_OK;
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  CK_RV result = CKR_SESSION_COUNT;
  if (is_wanted_) result = inner_->C_OpenSession(slot_, flags_, nullptr, nullptr, &handle);
  has_borrowed_ = result == CKR_SESSION_COUNT;
  is_borrowing_ = has_borrowed_;
  if (is_borrowing_) return CKR_OK;
  if (result != CKR_OK) return result;
  if (handle == CK_INVALID_HANDLE || handle == caller_) return CKR_DEVICE_ERROR;
  own_.Take(handle);
  return CKR_OK;
}

void WorkerSession::Close() {
  if (!is_open()) return;
  if (is_own()) {
    inner_->C_CloseSession(own_.handle());
  } else if (is_wanted_) {
    EndOperations();
  }
  own_.Release();
  is_borrowing_ = false;
}

// The caller's session cannot be closed: what is open on it is brought to an end.
void WorkerSession::EndOperations() {
  std::array<CK_BYTE, 4096> result = {};
  CK_ULONG size = result.size();
  inner_->C_SignFinal(caller_, result.data(), &size);
  size = result.size();
  inner_->C_DecryptFinal(caller_, result.data(), &size);
  Wipe(result);
}

}  // namespace kelvrin::adapter
