#include "tests/module/scripted_module.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

#include "tests/module/recording.h"

namespace scripted {
namespace {

// The standard's functions get no context, so each living module has a place of its own and a
// function list compiled for that place.
std::array<std::atomic<ScriptedModule*>, ScriptedModule::kMaxModules> places;

template <size_t kPlace, typename Traits, typename Type>
struct Entry;

template <size_t kPlace, typename Traits, typename... Arguments>
struct Entry<kPlace, Traits, CK_RV (*)(Arguments...)> {
  static CK_RV Run(Arguments... arguments) {
    ScriptedModule* module = places[kPlace];
    if (module == nullptr) return CKR_GENERAL_ERROR;
    Call call;
    call.function = Traits::kFunction;
    Record(call, arguments...);
    return module->Answer(call, [&] { return Traits::Perform(*module, arguments...); });
  }
};

#define SCRIPTED_TRAITS(name)                                                \
  struct name##Traits {                                                      \
    static constexpr Function kFunction = Function::name;                    \
    template <typename Module, typename... Arguments>                        \
    static CK_RV Perform(Module& module, Arguments... arguments) {           \
      if constexpr (requires { module.name(arguments...); }) {               \
        return module.name(arguments...);                                    \
      } else if constexpr (requires { module.card().name(arguments...); }) { \
        return module.card().name(arguments...);                             \
      } else {                                                               \
        return CKR_FUNCTION_NOT_SUPPORTED;                                   \
      }                                                                      \
    }                                                                        \
  };
SCRIPTED_FUNCTIONS(SCRIPTED_TRAITS)
#undef SCRIPTED_TRAITS

template <size_t kPlace>
CK_FUNCTION_LIST MakeList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 20};
#define SCRIPTED_ENTRY(name) \
  list.name = &Entry<kPlace, name##Traits, decltype(CK_FUNCTION_LIST::name)>::Run;
  SCRIPTED_FUNCTIONS(SCRIPTED_ENTRY)
#undef SCRIPTED_ENTRY
  return list;
}

CK_FUNCTION_LIST ListFor(size_t place) {
  static CK_FUNCTION_LIST (*const kMakers[ScriptedModule::kMaxModules])() = {
      MakeList<0>, MakeList<1>, MakeList<2>, MakeList<3>};
  return kMakers[place]();
}

[[noreturn]] void Die(const char* message) {
  fprintf(stderr, "scripted module: %s\n", message);
  abort();
}

size_t TakePlace(ScriptedModule* module) {
  for (size_t place = 0; place < places.size(); ++place) {
    ScriptedModule* none = nullptr;
    if (places[place].compare_exchange_strong(none, module)) return place;
  }
  Die("too many at a time");
}

}  // namespace

ScriptedModule::ScriptedModule() : place_(TakePlace(this)), list_(ListFor(place_)) {}
ScriptedModule::~ScriptedModule() { places[place_] = nullptr; }

CK_FUNCTION_LIST* ScriptedModule::functions() { return &list_; }

CK_RV ScriptedModule::C_GetFunctionList(CK_FUNCTION_LIST** list) {
  *list = &list_;
  return CKR_OK;
}

void ScriptedModule::Return(Function function, CK_RV result, Effect effect) {
  const std::lock_guard lock(mutex_);
  constant_[function] = {result, effect};
}

void ScriptedModule::ReturnOnce(Function function, CK_RV result, Effect effect) {
  const std::lock_guard lock(mutex_);
  queued_[function].push_back({result, effect});
}

void ScriptedModule::ReturnAt(Function function, size_t n, CK_RV result, Effect effect) {
  const std::lock_guard lock(mutex_);
  numbered_[{function, counts_[function] + n}] = {result, effect};
}

void ScriptedModule::Observe(std::function<void(const Call&)> observer) {
  const std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

std::vector<Call> ScriptedModule::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<std::string> ScriptedModule::Texts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  std::transform(calls_.begin(), calls_.end(), std::back_inserter(texts),
                 [](const Call& call) { return call.Text(); });
  return texts;
}

std::vector<std::string> ScriptedModule::Names() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  std::transform(calls_.begin(), calls_.end(), std::back_inserter(names),
                 [](const Call& call) { return FunctionName(call.function); });
  return names;
}

size_t ScriptedModule::Count(Function function) const {
  const std::lock_guard lock(mutex_);
  return static_cast<size_t>(
      std::count_if(calls_.begin(), calls_.end(),
                    [function](const Call& call) { return call.function == function; }));
}

Call ScriptedModule::At(Function function, size_t n) const {
  const std::lock_guard lock(mutex_);
  for (const Call& call : calls_) {
    if (call.function == function && n-- == 0) return call;
  }
  Die(FunctionName(function));
}

void ScriptedModule::ForgetCalls() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
}

void ScriptedModule::Reset() {
  const std::lock_guard lock(mutex_);
  calls_.clear();
  counts_.clear();
  constant_.clear();
  queued_.clear();
  numbered_.clear();
  observer_ = nullptr;
  card_ = CardModel();
}

std::optional<ScriptedModule::Result> ScriptedModule::TakeResult(Function function) {
  const auto numbered = numbered_.find({function, ++counts_[function]});
  if (numbered != numbered_.end()) return numbered->second;
  std::deque<Result>& queue = queued_[function];
  if (!queue.empty()) {
    const Result result = queue.front();
    queue.pop_front();
    return result;
  }
  const auto constant = constant_.find(function);
  if (constant != constant_.end()) return constant->second;
  return std::nullopt;
}

CK_RV ScriptedModule::Answer(const Call& call, const std::function<CK_RV()>& perform) {
  std::function<void(const Call&)> observer;
  std::optional<Result> result;
  {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
    result = TakeResult(call.function);
    observer = observer_;
  }
  if (observer) observer(call);
  const std::lock_guard lock(mutex_);
  if (!result) return perform();
  if (result->effect == Effect::kPerform) perform();
  return result->result;
}

}  // namespace scripted
