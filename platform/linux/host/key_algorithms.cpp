#include "platform/linux/host/key_algorithms.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::string_view kPrefix = "kSecKeyAlgorithm";

constexpr Algorithm kAlgorithms[] = {
#define KEY_ALGORITHM(name, value) {#name, value},
#include "platform/linux/ctk/key_algorithms.inc"
};

}  // namespace

Operation Algorithm::operation() const {
  if (value.starts_with("algid:sign:")) return Operation::kSign;
  return value.starts_with("algid:encrypt:") ? Operation::kDecrypt : Operation::kKeyExchange;
}

std::span<const Algorithm> Algorithms() { return kAlgorithms; }

const Algorithm* FindAlgorithm(std::string_view name) {
  if (name.starts_with(kPrefix)) name.remove_prefix(kPrefix.size());
  const auto* found = std::ranges::find(kAlgorithms, name, &Algorithm::name);
  return found == std::end(kAlgorithms) ? nullptr : found;
}

std::string ConstantName(std::string_view value) {
  const auto* found = std::ranges::find(kAlgorithms, value, &Algorithm::value);
  if (found == std::end(kAlgorithms)) return std::string(value);
  return std::string(kPrefix).append(found->name);
}

std::string AlgorithmValue(std::string_view name) {
  return std::string(FindAlgorithm(name)->value);
}

}  // namespace host
