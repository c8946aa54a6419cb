// A PKCS#11 module for tests: records every call with its arguments, behaves like a card
// (card_model.h) and returns whatever it is told to.
#pragma once

#include <p11-kit/pkcs11.h>

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/module/call.h"
#include "tests/module/card_model.h"

namespace scripted {

// What a call that was told its result does besides returning it.
enum class Effect {
  kNone,     // touches nothing that the caller passed
  kPerform,  // carries the function out on the card first, then returns the result it was told
};

// At most kMaxModules live at a time. Recording and scripting may happen on several threads; the
// card's fields are for the test to set while no call runs.
class ScriptedModule {
 public:
  static constexpr size_t kMaxModules = 4;

  ScriptedModule();
  ~ScriptedModule();
  ScriptedModule(const ScriptedModule&) = delete;
  ScriptedModule& operator=(const ScriptedModule&) = delete;

  // The module's function list, complete; valid as long as the module lives.
  CK_FUNCTION_LIST* functions();
  CardModel& card() { return card_; }

  // From now on every call of the function returns the result.
  void Return(Function function, CK_RV result, Effect effect = Effect::kNone);
  // The next call that has not been told its result yet returns this one; queues up.
  void ReturnOnce(Function function, CK_RV result, Effect effect = Effect::kNone);
  // The n-th call from now on (1 is the next) returns the result; the others are not concerned.
  void ReturnAt(Function function, size_t n, CK_RV result, Effect effect = Effect::kNone);
  // Called before each call is carried out, on its thread and outside the module's lock: it may
  // look at the module, or block.
  void Observe(std::function<void(const Call&)> observer);

  // The calls so far, oldest first.
  std::vector<Call> calls() const;
  std::vector<std::string> Texts() const;  // Call::Text of each
  std::vector<std::string> Names() const;
  size_t Count(Function function) const;
  // The function's n-th call, 0 being the first. Ends the program when there is none.
  Call At(Function function, size_t n = 0) const;

  void ForgetCalls();
  // Forgets calls, results, observer and card.
  void Reset();

  // The one function that is the module's and not the card's.
  CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list);

  // For the function list: records the call and answers it by script, or else by `perform`.
  CK_RV Answer(const Call& call, const std::function<CK_RV()>& perform);

 private:
  struct Result {
    CK_RV result;
    Effect effect;
  };
  // Counts the call and takes the result that the script has for it, if any.
  std::optional<Result> TakeResult(Function function);

  const size_t place_;
  CK_FUNCTION_LIST list_;
  CardModel card_;
  mutable std::mutex mutex_;
  std::vector<Call> calls_;
  std::map<Function, size_t> counts_;  // unlike calls_ not reset by ForgetCalls
  std::map<Function, Result> constant_;
  std::map<Function, std::deque<Result>> queued_;
  std::map<std::pair<Function, size_t>, Result> numbered_;
  std::function<void(const Call&)> observer_;
};

}  // namespace scripted
