// Every entry of a function list at once.
#ifndef KELVRIN_ADAPTER_TESTING_ENTRIES_H_
#define KELVRIN_ADAPTER_TESTING_ENTRIES_H_

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "adapter/function_names.h"

namespace kelvrin::adapter {

template <typename... Arguments>
CK_RV CallWithNothing(CK_RV (*entry)(Arguments...)) {
  return entry(Arguments{}...);
}

// The entries that, called with nothing but zeros, do not answer CKR_CRYPTOKI_NOT_INITIALIZED; of
// those that have to while nobody has initialised.
inline std::vector<std::string> EntriesThatDoNotSayNotInitialised(CK_FUNCTION_LIST* p11) {
  std::vector<std::string> entries;
  const auto look = [&](const std::string& name, const auto& entry) {
    if (name == "C_Initialize" || name == "C_GetFunctionList") return;
    if (CallWithNothing(entry) != CKR_CRYPTOKI_NOT_INITIALIZED) entries.push_back(name);
  };
#define KELVRIN_LOOK(name) look(#name, p11->name);
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_LOOK, KELVRIN_LOOK)
#undef KELVRIN_LOOK
  return entries;
}

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_ENTRIES_H_
