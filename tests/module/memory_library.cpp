// The memory module as a loadable library. A program that cannot reach into it, because it runs in
// a process of its own, gets a library of this file together with one that defines
// SetUpMemoryModule, which readies the module before its first use.
#include "tests/module/memory_module.h"

#define KELVRIN_EXPORTED extern "C" __attribute__((visibility("default")))

__attribute__((weak)) void SetUpMemoryModule(kelvrin::MemoryModule& module);

KELVRIN_EXPORTED CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  auto& module = kelvrin::MemoryModule::Instance();
  [[maybe_unused]] static const bool is_set_up =
      SetUpMemoryModule != nullptr && (SetUpMemoryModule(module), true);
  return module.functions()->C_GetFunctionList(list);
}

KELVRIN_EXPORTED kelvrin::MemoryModule* memory_module() {
  return &kelvrin::MemoryModule::Instance();
}
