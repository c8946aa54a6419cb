// A module that hands every call on to another one and watches how it is used.
#ifndef KELVRIN_ADAPTER_TESTING_WATCHING_MODULE_H_
#define KELVRIN_ADAPTER_TESTING_WATCHING_MODULE_H_

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <atomic>
#include <stdexcept>

namespace kelvrin::adapter {

struct Watch {
  CK_FUNCTION_LIST* behind = nullptr;  // the other one; to be set before the first call
  std::atomic<int> initialised = 0;    // calls of C_Initialize and of C_Finalize
  std::atomic<int> finalised = 0;
  std::atomic<int> inside = 0;                // calls under way
  std::atomic<int> overlaps = 0;              // calls that found another one under way
  std::atomic<int> sessions = 0;              // opened and not closed
  std::atomic<void (*)()> on_sign = nullptr;  // called in the midst of C_Sign
};

// Loads the module and points it at `behind`. Throws std::runtime_error.
inline Watch& WatchModule(const char* path, CK_FUNCTION_LIST* behind) {
  void* const module = dlopen(path, RTLD_NOW);
  if (module == nullptr) throw std::runtime_error(dlerror());
  const auto watch = reinterpret_cast<Watch* (*)()>(dlsym(module, "kelvrin_watch"));
  if (watch == nullptr) throw std::runtime_error("no watching module");
  watch()->behind = behind;
  return *watch();
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_WATCHING_MODULE_H_
