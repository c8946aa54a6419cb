#include "adapter/search.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kBatch = 64;
// A module that finds more than this is taken for one that never stops.
constexpr std::size_t kMaxObjects = 1U << 20;
// Searches kept open on a session; the extension never finishes one.
constexpr std::size_t kMaxSearches = 32;

CK_RV ReadAll(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, Handles* found) {
  for (std::size_t seen = 0; seen <= kMaxObjects;) {
    std::array<CK_OBJECT_HANDLE, kBatch> batch = {};
    CK_ULONG count = 0;
    const CK_RV result = inner.C_FindObjects(session, batch.data(), batch.size(), &count);
    if (result != CKR_OK) return result;
    if (count > batch.size()) return CKR_DEVICE_ERROR;
    if (count == 0) return CKR_OK;
    seen += count;
    std::copy_if(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(count),
                 std::back_inserter(*found),
                 [](CK_OBJECT_HANDLE object) { return object != CK_INVALID_HANDLE; });
  }
  return CKR_DEVICE_ERROR;
}

}  // namespace

CK_RV FindAll(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
              std::span<CK_ATTRIBUTE> attributes, Handles* found) {
  found->clear();
  CK_RV result = inner.C_FindObjectsInit(session, attributes.data(), attributes.size());
  if (result == CKR_OPERATION_ACTIVE) {
    inner.C_FindObjectsFinal(session);
    result = inner.C_FindObjectsInit(session, attributes.data(), attributes.size());
  }
  if (result != CKR_OK) return result;
  result = ReadAll(inner, session, found);
  inner.C_FindObjectsFinal(session);
  if (result != CKR_OK) found->clear();
  return result;
}

CK_ULONG Search::Next(CK_OBJECT_HANDLE* objects, CK_ULONG room) {
  const CK_ULONG count = std::min<CK_ULONG>(room, found_.size() - given_);
  std::copy_n(found_.begin() + static_cast<std::ptrdiff_t>(given_), count, objects);
  given_ += count;
  return count;
}

void Searches::DropOwn() {
  const auto self = std::this_thread::get_id();
  std::erase_if(open_, [&](const Opened& opened) { return opened.thread == self; });
}

void Searches::Open(Search search) {
  DropOwn();
  if (open_.size() == kMaxSearches) open_.erase(open_.begin());
  open_.push_back({std::this_thread::get_id(), std::move(search)});
}

std::vector<Searches::Opened>::iterator Searches::FindCurrent() {
  const auto self = std::this_thread::get_id();
  const auto own = std::find_if(open_.begin(), open_.end(),
                                [&](const Opened& opened) { return opened.thread == self; });
  if (own != open_.end() || open_.empty()) return own;
  return std::prev(open_.end());
}

Search* Searches::Current() {
  const auto current = FindCurrent();
  return current == open_.end() ? nullptr : &current->search;
}

bool Searches::Close() {
  const auto current = FindCurrent();
  if (current == open_.end()) return false;
  open_.erase(current);
  return true;
}

}  // namespace kelvrin::adapter
