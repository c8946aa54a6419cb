#include "adapter/session_handles.h"

namespace kelvrin::adapter {

void SessionHandles::LoseAll() {
  for (const auto& [handle, holder] : holders_) holder->handle_ = CK_INVALID_HANDLE;
  losses_ += static_cast<unsigned>(holders_.size());
  holders_.clear();
}

void HeldSession::Take(CK_SESSION_HANDLE handle) {
  Release();
  HeldSession*& holder = all_->holders_[handle];
  if (holder != nullptr) {
    holder->handle_ = CK_INVALID_HANDLE;
    ++all_->losses_;
  }
  holder = this;
  handle_ = handle;
}

void HeldSession::Release() {
  if (is_held()) all_->holders_.erase(handle_);
  handle_ = CK_INVALID_HANDLE;
}

}  // namespace kelvrin::adapter
