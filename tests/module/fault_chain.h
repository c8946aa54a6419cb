// How one fault is put on top of another.
#pragma once

#include <functional>
#include <type_traits>
#include <utility>

#include "tests/module/memory_module.h"

namespace kelvrin::faults {

// The standard function that belongs to an override.
template <auto over>
struct StandardOf;
#define KELVRIN_STANDARD_OF(name)                           \
  template <>                                               \
  struct StandardOf<&MemoryEntries::name> {                 \
    static constexpr auto kEntry = &CK_FUNCTION_LIST::name; \
  };
SCRIPTED_FUNCTIONS(KELVRIN_STANDARD_OF)
#undef KELVRIN_STANDARD_OF

// Overrides the function by fault(next, arguments...), where next(arguments...) does what it did.
template <auto over, typename Fault>
void Chain(MemoryModule& module, Fault fault) {
  auto& entry = module.over.*over;
  using Function = std::remove_reference_t<decltype(entry)>;
  Function next = entry ? entry : Function(module.standard.*StandardOf<over>::kEntry);
  entry = [next, fault = std::move(fault)](auto... arguments) mutable -> CK_RV {
    return fault(next, arguments...);
  };
}

}  // namespace kelvrin::faults
