// Entering the adapter: one call at a time in the whole process, and afresh after a fork.
#ifndef KELVRIN_ADAPTER_ENTRY_H_
#define KELVRIN_ADAPTER_ENTRY_H_

#include <p11-kit/pkcs11.h>

#include <mutex>
#include <new>

#include "adapter/adapter.h"
#include "adapter/shared_state.h"

namespace kelvrin::adapter {

// Whether the library knows where it lies; without that there is no configuration to read.
bool KnowsItself();

// The adapter of this copy in this process, with the lock that keeps all copies' calls apart. Made
// by the first C_Initialize. The child of a fork starts without one, and what its parent had stays
// untouched: the thread that held the lock there does not exist here.
struct ProcessAdapter {
  ProcessAdapter();

  SharedState& shared;
  Adapter adapter;
};

// Null when there is none yet.
ProcessAdapter* CurrentAdapter();
// Makes it when there is none. Throws std::runtime_error or std::bad_alloc.
ProcessAdapter& MakeCurrentAdapter();

// A thread's turn in the adapter.
class Turn {
 public:
  explicit Turn(ProcessAdapter& process);
  ~Turn() { inside_ = outer_; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  // False for a module that calls back into the adapter on the thread that called it: it would meet
  // its own call half done.
  bool IsGranted() const { return lock_.owns_lock(); }

 private:
  static thread_local const ProcessAdapter* inside_;

  const ProcessAdapter* outer_;
  std::unique_lock<std::recursive_mutex> lock_;
};

// Calls action(Adapter&) and lets no exception out.
template <typename Action>
CK_RV Enter(ProcessAdapter& process, const Action& action) {
  const Turn turn(process);
  if (!turn.IsGranted()) return CKR_FUNCTION_FAILED;
  process.adapter.CatchUp();
  return action(process.adapter);
}

template <typename Body>
CK_RV WithoutExceptions(const Body& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
}

// For every function but C_Initialize: while nobody has called that, an adapter that was never
// initialised answers, and nothing is locked or looked for.
template <typename Action>
CK_RV Locked(const Action& action) noexcept {
  return WithoutExceptions([&]() -> CK_RV {
    if (ProcessAdapter* const process = CurrentAdapter()) return Enter(*process, action);
    Adapter nobody(nullptr);
    return action(nobody);
  });
}

template <typename Action>
CK_RV LockedInitialize(const Action& action) noexcept {
  return WithoutExceptions([&] { return Enter(MakeCurrentAdapter(), action); });
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ENTRY_H_
