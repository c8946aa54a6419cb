#include "adapter/search_memory.h"

#include <algorithm>
#include <array>
#include <utility>

#include "adapter/object_reading.h"

namespace kelvrin::adapter {

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
  if (wanted[0].ulValueLen != sizeof(object_class) || object_class != name.object_class) {
    return false;
  }
  return wanted[1].ulValueLen == name.id.size() &&
         std::equal(name.id.begin(), name.id.end(), id.begin());
}

std::optional<std::string> ReadTokenIdentity(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot) {
  CK_TOKEN_INFO info = {};
  if (inner.C_GetTokenInfo(slot, &info) != CKR_OK) return std::nullopt;
  std::string identity(std::begin(info.serialNumber), std::end(info.serialNumber));
  identity.append(std::begin(info.label), std::end(info.label));
  return identity;
}

const Handles* SearchMemory::Recall(CK_SESSION_HANDLE session, const ObjectName& name) {
  const auto found = entries_.find(name);
  if (found == entries_.end() || !LookAgain(session, *found)) return nullptr;
  return &found->second.found;
}

bool SearchMemory::IsTrue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  const auto found = by_object_.find(object);
  return found != by_object_.end() && LookAgain(session, *found->second);
}

// Looks at the entry's objects where the last look is too old.
bool SearchMemory::LookAgain(CK_SESSION_HANDLE session, Entries::value_type& entry) {
  Entry& known = entry.second;
  const auto now = now_();
  if (now - known.seen < kObjectTrust) return true;
  const bool is_still_true =
      IsSameToken(now) &&
      std::all_of(known.found.begin(), known.found.end(), [&](CK_OBJECT_HANDLE object) {
        return HasName(inner_, session, object, entry.first);
      });
  if (is_still_true) {
    known.seen = now;
  } else {
    Forget();
  }
  return is_still_true;
}

bool SearchMemory::IsSameToken(Clock::time_point now) {
  if (now - token_seen_ < kTokenTrust) return true;
  if (ReadTokenIdentity(inner_, slot_) != token_) return false;
  token_seen_ = now;
  return true;
}

std::optional<std::string> SearchMemory::TokenIdentity() {
  if (!entries_.empty() && IsSameToken(now_())) return token_;
  return ReadTokenIdentity(inner_, slot_);
}

void SearchMemory::Learn(const ObjectName& name, Handles found) {
  if (found.empty()) return;
  const auto now = now_();
  if (entries_.empty()) {
    const std::optional<std::string> token = ReadTokenIdentity(inner_, slot_);
    if (!token) return;
    token_ = *token;
    token_seen_ = now;
  }
  const auto entry = entries_.try_emplace(name).first;
  for (const CK_OBJECT_HANDLE object : entry->second.found) by_object_.erase(object);
  for (const CK_OBJECT_HANDLE object : found) by_object_[object] = &*entry;
  entry->second = {std::move(found), now};
}

void SearchMemory::Forget() {
  by_object_.clear();
  entries_.clear();
}

const ObjectName* SearchMemory::NameOf(CK_OBJECT_HANDLE object) const {
  const auto found = by_object_.find(object);
  return found == by_object_.end() ? nullptr : &found->second->first;
}

}  // namespace kelvrin::adapter
