// Entering the adapter without a configuration file: the script says which rules apply, and the
// scripted module stands behind. Takes the place of adapter/entry.cpp.
#include <array>
#include <chrono>
#include <cstddef>
#include <memory>

#include "adapter/entry.h"
#include "fuzz/entry_for_fuzzing.h"
#include "fuzz/script.h"
#include "fuzz/scripted_inner.h"

namespace kelvrin::adapter {
namespace {

SharedState& TheState() {
  static auto* const state = new SharedState;
  return *state;
}

Backend OpenScripted() {
  fuzz::Script& script = *fuzz::Script::current;
  Backend backend;
  backend.functions = fuzz::ScriptedInner();
  backend.config.reader_name = script.Coin() ? "Reader" : "";
  backend.config.reserved = script.Coin() ? "reserved" : "";
  backend.config.serial_in_label = script.Coin();
  Rules& rules = backend.config.rules;
  if (script.Coin()) rules = Rules::Standard();
  for (CK_ULONG off = script.UpTo(3); off > 0; --off) {
    rules.SwitchOff(kRuleNames[script.UpTo(kRuleCount - 1)].rule);
  }
  // A clock of the script's own: now and then a look at the memory has grown old.
  backend.now = [time = SearchMemory::Clock::time_point(std::chrono::hours(1))]() mutable {
    const CK_ULONG step = fuzz::Script::current->UpTo(60);
    if (step > 30) time += std::chrono::milliseconds(step);
    return time;
  };
  return backend;
}

std::array<std::unique_ptr<ProcessAdapter>, fuzz::kCopies> copies;
std::size_t current = 0;

}  // namespace

bool KnowsItself() { return true; }

ProcessAdapter::ProcessAdapter() : shared(TheState()), adapter(OpenScripted, &shared.uses) {}

ProcessAdapter* CurrentAdapter() { return copies[current].get(); }

ProcessAdapter& MakeCurrentAdapter() {
  if (!copies[current]) copies[current] = std::make_unique<ProcessAdapter>();
  return *copies[current];
}

thread_local const ProcessAdapter* Turn::inside_ = nullptr;

Turn::Turn(ProcessAdapter& process) : outer_(inside_), lock_(process.shared.mutex) {}

}  // namespace kelvrin::adapter

namespace kelvrin::fuzz {

void SwitchCopy() { adapter::current = (adapter::current + 1) % kCopies; }

void ForgetAdapters() {
  for (auto& copy : adapter::copies) copy.reset();
  adapter::current = 0;
  adapter::TheState().uses.clear();
}

}  // namespace kelvrin::fuzz
