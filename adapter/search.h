// Searches that are over before the caller reads the first result.
#ifndef KELVRIN_ADAPTER_SEARCH_H_
#define KELVRIN_ADAPTER_SEARCH_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <span>
#include <thread>
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

// The searches that are open on one session: one for each thread, so that threads that share a
// session do not read each other's results. The system's own threads come and go; of many searches
// that nobody finishes the oldest are dropped.
class Searches {
 public:
  // Opens a search of the calling thread's; the one that it had is over.
  void Open(Search search);

  // Ends the calling thread's own search, if it has one.
  void DropOwn();

  // The calling thread's search, or else the one that was opened last by another: a caller may
  // begin on one thread and read on the next. Null when there is none.
  Search* Current();

  // Ends the search that Current gives; false when there is none.
  bool Close();

  void Clear() { open_.clear(); }

 private:
  struct Opened {
    std::thread::id thread;
    Search search;
  };
  std::vector<Opened>::iterator FindCurrent();

  std::vector<Opened> open_;  // the oldest first
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SEARCH_H_
