// Searches that are over before the caller reads the first result.
#ifndef KELVRIN_ADAPTER_SEARCH_H_
#define KELVRIN_ADAPTER_SEARCH_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>
#include <vector>

namespace kelvrin::adapter {

// The objects that a search found, handed out piece by piece.
class Search {
 public:
  // Runs a whole search on `session` of the module: no search of the module's stays open, so that
  // neither the next one nor an operation meets it. On failure there are no results.
  static CK_RV Run(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                   std::span<CK_ATTRIBUTE> attributes, Search* search);

  // Copies the next results, at most `room` of them, to `objects`; returns how many.
  CK_ULONG Next(CK_OBJECT_HANDLE* objects, CK_ULONG room);

 private:
  std::vector<CK_OBJECT_HANDLE> found_;
  std::size_t given_ = 0;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SEARCH_H_
