// The fuzzer's target: a hostile module behind the adapter, and its caller in front of it.
#include <cstddef>
#include <cstdint>
#include <new>

#include "adapter/session/adapter.h"
#include "fuzz/caller.h"
#include "fuzz/hostile_module.h"
#include "fuzz/script.h"

namespace kelvrin::fuzz {
namespace {

// The script says too which rules apply and what is configured.
adapter::Backend OpenHostile() {
  Script& script = *Script::current;
  adapter::Backend backend;
  backend.functions = HostileModule();
  backend.config.reader_name = script.Coin() ? "Reader" : "";
  backend.config.any_reader = script.Byte() < 0xf0;
  backend.config.reserved = script.Coin() ? "reserved" : "";
  backend.config.serial_in_label = script.Coin();
  for (CK_ULONG off = script.UpTo(3); off > 0; --off) {
    const auto& name = adapter::kRuleNames[script.UpTo(adapter::kRuleNames.size() - 1)];
    backend.config.rules.SwitchOff(name.rule);
  }
  return backend;
}

// What a module claims may be more than there is memory; the adapter's boundary answers for that.
template <typename Call>
bool HasMemoryFor(const Call& call) {
  try {
    call();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace
}  // namespace kelvrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fuzz = kelvrin::fuzz;
  constexpr int kMostCalls = 40;
  fuzz::Script script(data, size);
  kelvrin::adapter::Adapter adapter(fuzz::OpenHostile);
  fuzz::Caller caller(adapter, script);
  fuzz::HasMemoryFor([&] { caller.CallRoad(); });
  for (int i = 0; i < kMostCalls && !script.IsOver(); ++i) {
    fuzz::HasMemoryFor([&] { caller.CallOne(); });
  }
  adapter.Finalize();
  return 0;
}
