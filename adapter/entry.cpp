#include "adapter/entry.h"

#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

#include "adapter/config.h"
#include "adapter/file_path.h"
#include "adapter/inner_module.h"
#include "adapter/own_library.h"
#include "adapter/setup_error.h"

namespace kelvrin::adapter {
namespace {

// Never destroyed, all of it: the program may call until its very end.
const std::string* library = nullptr;
std::atomic<ProcessAdapter*> current = nullptr;
Copy copy;

// In the child of a fork, on its only thread. Nothing that another thread may have held in the
// parent is waited for, or used again.
void StartAfresh() {
  current.store(nullptr);
  new (&copy) Copy;
}

// As the library is loaded, when no other thread can fork in the midst of it, and before the
// program can change its working folder, since the path may be relative to that.
//
// From here on the image stays: function lists kept too long never point into nothing, nor does the
// system's list of what a fork calls.
__attribute__((constructor)) void Load() {
  StayMapped();
  pthread_atfork(nullptr, nullptr, StartAfresh);
  try {
    library = new std::string(OwnLibrary());
  } catch (...) {
    library = nullptr;  // C_GetFunctionList tells
  }
}

Backend OpenBackend() {
  Backend backend;
  backend.config = ReadConfig(ConfigFileOf(*library));
  const Config& config = backend.config;
  if (IsSameFile(config.module, *library)) {
    throw SetupError(CKR_FUNCTION_FAILED,
                     config.file + ":" + std::to_string(config.module_line) +
                         ": the module is the adapter itself; name the module to put behind it");
  }
  backend.functions = LoadInnerModule(config);
  return backend;
}

}  // namespace

bool KnowsItself() { return library != nullptr; }

ProcessAdapter::ProcessAdapter()
    : shared(DecideState(copy, FindLoadedCopies(*library))), adapter(OpenBackend, &shared.uses) {}

ProcessAdapter* CurrentAdapter() { return current.load(); }

ProcessAdapter& MakeCurrentAdapter() {
  ProcessAdapter* present = current.load();
  if (present != nullptr) return *present;
  auto made = std::make_unique<ProcessAdapter>();
  // Another thread may have been faster.
  return current.compare_exchange_strong(present, made.get()) ? *made.release() : *present;
}

thread_local const ProcessAdapter* Turn::inside_ = nullptr;

Turn::Turn(ProcessAdapter& process) : outer_(inside_) {
  if (inside_ == &process) return;
  lock_ = std::unique_lock(process.shared.mutex);
  inside_ = &process;
}

}  // namespace kelvrin::adapter

extern "C" __attribute__((visibility("default"))) kelvrin::adapter::Copy*
kelvrin_adapter_shared_3() {
  return &kelvrin::adapter::copy;
}
