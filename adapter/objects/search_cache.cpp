#include "adapter/objects/search_cache.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kelvrin::adapter {
namespace {

// Whether the object has that class and CKA_ID now.
bool HasName(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
             const ObjectName& name) {
  CK_OBJECT_CLASS object_class = 0;
  // One byte more than the CKA_ID that is expected, to see that another one is longer.
  Bytes id(name.id.size() + 1);
  std::array<CK_ATTRIBUTE, 2> wanted = {{
      {CKA_CLASS, &object_class, sizeof(object_class)},
      {CKA_ID, id.data(), id.size()},
  }};
  if (inner.C_GetAttributeValue(session, object, wanted.data(), wanted.size()) != CKR_OK) {
    return false;
  }
  return wanted[0].ulValueLen == sizeof(object_class) && object_class == name.object_class &&
         wanted[1].ulValueLen == name.id.size() &&
         std::equal(name.id.begin(), name.id.end(), id.begin());
}

}  // namespace

const Handles* SearchCache::Recall(CK_SESSION_HANDLE session, const ObjectName& name) {
  const auto found = entries_.find(name);
  if (found == entries_.end()) {
    last_ = nullptr;
    return nullptr;
  }
  in_a_row_ = last_ == &found->first ? in_a_row_ + 1 : 1;
  last_ = &found->first;
  if (in_a_row_ > kSteady && in_a_row_ % kLookEvery != 0) return &found->second;
  if (HasName(inner_, session, found->second.front(), name)) return &found->second;
  Forget();
  return nullptr;
}

void SearchCache::Learn(const ObjectName& name, Handles found) {
  if (found.empty()) return;
  const auto entry = entries_.try_emplace(name).first;
  for (const CK_OBJECT_HANDLE object : entry->second) by_object_.erase(object);
  for (const CK_OBJECT_HANDLE object : found) by_object_[object] = &entry->first;
  entry->second = std::move(found);
}

void SearchCache::Forget() {
  by_object_.clear();
  entries_.clear();
  last_ = nullptr;
}

const ObjectName* SearchCache::NameOf(CK_OBJECT_HANDLE object) const {
  const auto found = by_object_.find(object);
  return found == by_object_.end() ? nullptr : found->second;
}

}  // namespace kelvrin::adapter
