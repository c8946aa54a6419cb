#include "adapter/worker_session.h"

namespace kelvrin::adapter {

CK_RV WorkerSession::Open() {
  if (is_open()) return CKR_OK;
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  const CK_RV result = inner_->C_OpenSession(slot_, flags_, nullptr, nullptr, &handle);
  if (result != CKR_OK) return result;
  if (handle == CK_INVALID_HANDLE) return CKR_DEVICE_ERROR;
  handle_ = handle;
  return CKR_OK;
}

void WorkerSession::Close() {
  if (!is_open()) return;
  inner_->C_CloseSession(handle_);
  handle_ = CK_INVALID_HANDLE;
}

}  // namespace kelvrin::adapter
