// Handing a call on to the module, whatever it answers. Each template makes a function with the
// arguments of an entry of the function list, and the module's list in front of them.
#ifndef KELVRIN_ADAPTER_FORWARDING_H_
#define KELVRIN_ADAPTER_FORWARDING_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "adapter/outputs.h"

namespace kelvrin::adapter {

// Whether no pointer is missing among an entry's inputs. Empty data needs none.
template <std::size_t kAt = 0, typename... Inputs>
bool AreThere(const std::tuple<Inputs...>& inputs) {
  if constexpr (kAt == sizeof...(Inputs)) {
    return true;
  } else {
    using Input = std::tuple_element_t<kAt, std::tuple<Inputs...>>;
    bool is_there = true;
    if constexpr (std::is_pointer_v<Input>) {
      is_there = std::get<kAt>(inputs) != nullptr;
      // What follows a mechanism is a key, or speaks of something else.
      constexpr bool kHasLength =
          !std::is_same_v<Input, CK_MECHANISM*> && kAt + 1 < sizeof...(Inputs);
      if constexpr (kHasLength) is_there = is_there || std::get<kAt + 1>(inputs) == 0;
    }
    return is_there && AreThere<kAt + 1>(inputs);
  }
}

// How many bytes of data the inputs have at their end; 0 when they do not end with data.
template <typename... Inputs>
CK_ULONG DataSize(const std::tuple<Inputs...>& inputs) {
  constexpr std::size_t kCount = sizeof...(Inputs);
  if constexpr (kCount >= 2) {
    using Data = std::tuple_element_t<kCount - 2, std::tuple<Inputs...>>;
    if constexpr (std::is_same_v<Data, CK_BYTE*>) return std::get<kCount - 1>(inputs);
  }
  return 0;
}

// Parts an entry's arguments into inputs and the last `kOutputs`, the outputs, and calls
// action(call, inputs, outputs...) if no input is missing; call(outputs...) calls the module.
template <std::size_t kOutputs, typename Entry, typename Action, typename... Arguments>
CK_RV WithParts(const CK_FUNCTION_LIST& inner, Entry entry, const Action& action,
                Arguments... arguments) {
  const std::tuple<Arguments...> all(arguments...);
  constexpr std::size_t kInputs = sizeof...(Arguments) - kOutputs;
  const auto part = [&]<std::size_t... kIn, std::size_t... kOut>(
                        std::index_sequence<kIn...>, std::index_sequence<kOut...>) -> CK_RV {
    const std::tuple inputs(std::get<kIn>(all)...);
    if (!AreThere(inputs)) return CKR_ARGUMENTS_BAD;
    const auto call = [&](auto... outputs) {
      return (inner.*entry)(std::get<kIn>(all)..., outputs...);
    };
    return action(call, inputs, std::get<kInputs + kOut>(all)...);
  };
  return part(std::make_index_sequence<kInputs>(), std::make_index_sequence<kOutputs>());
}

template <auto Entry>
struct Forwarded;
template <typename... Arguments, CK_RV (*CK_FUNCTION_LIST::*Entry)(Arguments...)>
struct Forwarded<Entry> {
  // The entry returns nothing but its result.
  static CK_RV Plain(const CK_FUNCTION_LIST& inner, Arguments... arguments) {
    if (!AreThere(std::tuple(arguments...))) return CKR_ARGUMENTS_BAD;
    return (inner.*Entry)(arguments...);
  }

  // Its last arguments are a buffer and its length.
  static CK_RV Bytes(const CK_FUNCTION_LIST& inner, Arguments... arguments) {
    const auto action = [](const auto& call, const auto& inputs, CK_BYTE* output, CK_ULONG* size) {
      return WriteOutput(call, DataSize(inputs), output, size);
    };
    return WithParts<2>(inner, Entry, action, arguments...);
  }

  // Its last argument is a new object's handle.
  static CK_RV Object(const CK_FUNCTION_LIST& inner, Arguments... arguments) {
    const auto action = [](const auto& call, const auto&, CK_OBJECT_HANDLE* object) -> CK_RV {
      if (object == nullptr) return CKR_ARGUMENTS_BAD;
      return WriteHandle(call, object);
    };
    return WithParts<1>(inner, Entry, action, arguments...);
  }

  // Its last arguments are two new objects' handles.
  static CK_RV TwoObjects(const CK_FUNCTION_LIST& inner, Arguments... arguments) {
    const auto action = [](const auto& call, const auto&, CK_OBJECT_HANDLE* first,
                           CK_OBJECT_HANDLE* second) -> CK_RV {
      if (first == nullptr || second == nullptr) return CKR_ARGUMENTS_BAD;
      return WriteHandles(call, first, second);
    };
    return WithParts<2>(inner, Entry, action, arguments...);
  }

  // Its last argument is a record, or a number.
  static CK_RV Record(const CK_FUNCTION_LIST& inner, Arguments... arguments) {
    const auto action = [](const auto& call, const auto&, auto* record) -> CK_RV {
      if (record == nullptr) return CKR_ARGUMENTS_BAD;
      return WriteRecord(call, record);
    };
    return WithParts<1>(inner, Entry, action, arguments...);
  }
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_FORWARDING_H_
