#include "adapter/session_handles.h"

#include <algorithm>

namespace kelvrin::adapter {

void SessionHandles::LoseAll() {
  for (const auto& [handle, holder] : holders_) holder->handle_ = CK_INVALID_HANDLE;
  losses_ += static_cast<unsigned>(holders_.size());
  holders_.clear();
  slots_of_losses_.clear();
}

void SessionHandles::Lose(CK_SESSION_HANDLE handle) {
  const auto found = holders_.find(handle);
  if (found == holders_.end()) return;
  HeldSession& loser = *found->second;
  loser.handle_ = CK_INVALID_HANDLE;
  slots_of_losses_.insert(loser.slot_);
  ++losses_;
  holders_.erase(found);
}

bool SessionHandles::AreOn(CK_SLOT_ID slot) const {
  return std::any_of(holders_.begin(), holders_.end(),
                     [&](const auto& entry) { return entry.second->slot_ == slot; });
}

void HeldSession::Take(CK_SESSION_HANDLE handle) {
  Release();
  all_->Lose(handle);
  all_->holders_[handle] = this;
  handle_ = handle;
}

void HeldSession::Release() {
  if (is_held()) all_->holders_.erase(handle_);
  handle_ = CK_INVALID_HANDLE;
}

}  // namespace kelvrin::adapter
