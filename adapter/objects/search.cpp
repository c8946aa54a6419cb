#include "adapter/objects/search.h"

#include <algorithm>
#include <array>

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kBatch = 64;
// A module that finds more than this is taken for one that never stops.
constexpr std::size_t kMaxObjects = 1U << 20;

CK_RV ReadAll(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, Handles* found) {
  for (std::size_t seen = 0; seen <= kMaxObjects;) {
    std::array<CK_OBJECT_HANDLE, kBatch> batch = {};
    CK_ULONG count = 0;
    const CK_RV result = inner.C_FindObjects(session, batch.data(), batch.size(), &count);
    if (result != CKR_OK) return result;
    if (count > batch.size()) return CKR_DEVICE_ERROR;
    if (count == 0) return CKR_OK;
    seen += count;
    found->insert(found->end(), batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(count));
  }
  return CKR_DEVICE_ERROR;
}

}  // namespace

CK_RV FindAll(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
              std::span<CK_ATTRIBUTE> attributes, Handles* found) {
  found->clear();
  CK_RV result = inner.C_FindObjectsInit(session, attributes.data(), attributes.size());
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

}  // namespace kelvrin::adapter
