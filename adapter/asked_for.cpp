#include "adapter/asked_for.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "adapter/object_reading.h"

namespace kelvrin::adapter {
namespace {

// Handles in each of the two halves.
constexpr std::size_t kMaxHandles = 4096;

}  // namespace

Wanted ReadWanted(std::span<const CK_ATTRIBUTE> attributes) {
  Wanted wanted;
  for (const CK_ATTRIBUTE& attribute : attributes) {
    const auto* value = static_cast<const CK_BYTE*>(attribute.pValue);
    const bool has_value = value != nullptr || attribute.ulValueLen == 0;
    if (attribute.type == CKA_CLASS && value != nullptr && !wanted.object_class &&
        attribute.ulValueLen == sizeof(CK_OBJECT_CLASS)) {
      CK_OBJECT_CLASS object_class = 0;
      std::copy_n(value, sizeof(object_class), reinterpret_cast<CK_BYTE*>(&object_class));
      wanted.object_class = object_class;
    } else if (attribute.type == CKA_ID && has_value && !wanted.id &&
               attribute.ulValueLen <= kMaxId) {
      wanted.id = Bytes(value, value + attribute.ulValueLen);
    } else {
      wanted.nothing_else = false;
    }
  }
  return wanted;
}

void AskedFor::Remember(CK_OBJECT_HANDLE object, const Wanted& wanted) {
  const auto known = recent_.find(object);
  if (known != recent_.end()) {
    // Mostly it is the same search again.
    if (known->second != wanted) known->second = wanted;
    return;
  }
  if (recent_.size() == kMaxHandles) {
    older_ = std::move(recent_);
    recent_.clear();
  }
  older_.erase(object);
  recent_.emplace(object, wanted);
}

const Wanted* AskedFor::Find(CK_OBJECT_HANDLE object) const {
  for (const ByHandle* half : {&recent_, &older_}) {
    const auto known = half->find(object);
    if (known != half->end()) return &known->second;
  }
  return nullptr;
}

void AskedFor::Drop(CK_OBJECT_HANDLE object) {
  recent_.erase(object);
  older_.erase(object);
}

}  // namespace kelvrin::adapter
