// What all copies of the library in one process have in common.
//
// A bundle carries the library under two names with two configurations; a process that loads both
// has two images of it, each with variables of its own, over one module. They must count together
// who uses the module, and keep each other's calls out of it.
#ifndef KELVRIN_ADAPTER_SHARED_STATE_H_
#define KELVRIN_ADAPTER_SHARED_STATE_H_

#include <mutex>
#include <string>
#include <vector>

#include "adapter/inner_use.h"

namespace kelvrin::adapter {

// Lies on the heap and stays there, whichever images come and go.
struct SharedState {
  // Held during every call, also of the modules behind. Recursive, since one copy may be the module
  // behind another.
  std::recursive_mutex mutex;
  ModuleUses uses;  // guarded by mutex
};

// One copy, as the others see it.
struct Copy {
  std::mutex deciding;           // guards `state`
  SharedState* state = nullptr;  // the state in use, once that is decided
};

// The name of the C function by which a copy hands out its Copy. It changes with the layout of the
// structures here, so that copies of different versions do not find each other.
inline constexpr const char* kCopyFunction = "kelvrin_adapter_shared_3";
using CopyFunction = Copy* (*)();

// The loaded copies among the files beside `library`, an absolute path: those that have a
// configuration (a file of the same name ending in .conf). Loads nothing.
std::vector<Copy*> FindLoadedCopies(const std::string& library);

// Decides on the state that `own` and `others` use from now on: the one that any of them has
// decided on before, or a new one. A copy that is about to decide for itself at the same time, and
// sees fewer of them, finds the decision made.
SharedState& DecideState(Copy& own, const std::vector<Copy*>& others);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SHARED_STATE_H_
