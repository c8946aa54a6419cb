// Searches that are over before the caller reads the first result.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace kelvrin::adapter {

using Handles = std::vector<CK_OBJECT_HANDLE>;

// Runs a whole search on `session` of the module: no search of the module's stays open, so that
// neither the next one nor an operation meets it. `found` gets the results; on failure it is empty.
CK_RV FindAll(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
              std::span<CK_ATTRIBUTE> attributes, Handles* found);

// The objects that a search found, handed out piece by piece.
class Search {
 public:
  explicit Search(Handles found) : found_(std::move(found)) {}

  // Copies the next results, at most `room` of them, to `objects`; returns how many.
  CK_ULONG Next(CK_OBJECT_HANDLE* objects, CK_ULONG room);

 private:
  Handles found_;
  std::size_t given_ = 0;
};

}  // namespace kelvrin::adapter
