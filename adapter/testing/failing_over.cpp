// SoftHSM as a card that is pulled at a certain call: a PKCS#11 module that hands each call on to
// another one, until there are no calls left.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstddef>

#include "adapter/inner/function_names.h"

#define KELVRIN_EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

CK_FUNCTION_LIST* behind = nullptr;
// Calls that are still handed on. Those after them answer CKR_DEVICE_REMOVED and do nothing.
std::size_t calls_left = 0;
std::size_t calls = 0;

template <auto entry>
struct Entry;
template <typename... Arguments, CK_RV (*CK_FUNCTION_LIST::*entry)(Arguments...)>
struct Entry<entry> {
  static CK_RV Call(Arguments... arguments) {
    ++calls;
    if (calls_left == 0) return CKR_DEVICE_REMOVED;
    --calls_left;
    return (behind->*entry)(arguments...);
  }
};

}  // namespace

// Names the module behind, and how many calls it is to see from now on; returns how many were made
// since the last time.
KELVRIN_EXPORTED std::size_t failing_over(const char* path, std::size_t left) {
  if (behind == nullptr) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return 0;
    const auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
    get(&behind);
  }
  calls_left = left;
  const std::size_t made = calls;
  calls = 0;
  return made;
}

KELVRIN_EXPORTED CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  static CK_FUNCTION_LIST functions = {};
  functions.version = behind->version;
#define KELVRIN_HAND_ON(name) functions.name = Entry<&CK_FUNCTION_LIST::name>::Call;
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_HAND_ON, KELVRIN_HAND_ON)
#undef KELVRIN_HAND_ON
  *list = &functions;
  return CKR_OK;
}
