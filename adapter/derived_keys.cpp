#include "adapter/derived_keys.h"

#include <algorithm>
#include <cstddef>

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kMaxKeys = 32;

}  // namespace

void DerivedKeys::BelongTo(const std::optional<std::string>& token) {
  if (token == token_) return;
  keys_.clear();
  token_ = token;
}

std::optional<CK_OBJECT_HANDLE> DerivedKeys::Remember(CK_OBJECT_HANDLE key) {
  std::optional<CK_OBJECT_HANDLE> dropped = Take();
  if (!dropped && keys_.size() == kMaxKeys) {
    dropped = keys_.front().second;
    keys_.erase(keys_.begin());
  }
  keys_.emplace_back(std::this_thread::get_id(), key);
  return dropped;
}

std::optional<CK_OBJECT_HANDLE> DerivedKeys::Take() {
  const auto self = std::this_thread::get_id();
  const auto own = std::find_if(keys_.begin(), keys_.end(),
                                [&](const auto& entry) { return entry.first == self; });
  if (own == keys_.end()) return std::nullopt;
  const CK_OBJECT_HANDLE key = own->second;
  keys_.erase(own);
  return key;
}

void DerivedKeys::Drop(CK_OBJECT_HANDLE key) {
  std::erase_if(keys_, [&](const auto& entry) { return entry.second == key; });
}

}  // namespace kelvrin::adapter
