// Tries a certificate's key: one scheme after the other, until one of them shows that there is no
// use in going on.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "app/model/system.h"

namespace kelvrin::app {

// Why a trial ended.
enum class Verdict {
  kWorked,         // all that the key supports
  kUnsupported,    // the card supports none of the schemes
  kPinRefused,     // the next try would use up another one
  kNoReason,       // the first scheme failed without a reason, as it does after a wrong PIN
  kPinNotEntered,  // the person cancelled the system's question
  kCardGone,
  kKeyNotFound,  // though its token is there
  kWrongResult,
  kFailed,
  kCancelled,
};

class Trial {
 public:
  struct Result {
    Scheme scheme;
    Attempt attempt;
  };

  // Begins at once. `changed` is called, after the constructor, whenever the rest has changed.
  // Both outlive it.
  Trial(System* system, Certificate certificate, std::function<void()> changed);

  const Certificate& certificate() const { return certificate_; }
  // What is being tried; nothing when the trial has ended.
  std::optional<Scheme> running() const;
  // How far it came: of how many schemes.
  size_t done() const { return results_.size(); }
  size_t count() const { return schemes_.size(); }
  const std::vector<Result>& results() const { return results_; }
  // Nothing while it runs.
  const std::optional<Verdict>& verdict() const { return verdict_; }

  // Ends it; the card may still be busy with its last scheme.
  void Cancel() { End(Verdict::kCancelled); }
  // Ends it, or says why it has ended, because the token is not there any more.
  void CardIsGone() { End(Verdict::kCardGone); }

 private:
  void TryNext();
  void Take(const Attempt& attempt);
  void End(Verdict verdict);

  System* system_;
  Certificate certificate_;
  std::function<void()> changed_;
  std::vector<Scheme> schemes_;
  std::vector<Result> results_;
  std::optional<Verdict> verdict_;
  TaskPointer task_;
};

// The schemes that a certificate's key is tried with; none for one without a key.
std::vector<Scheme> SchemesFor(const Certificate& certificate);

// What an attempt says of the whole trial; nothing when the next scheme may be tried.
//   is_first   nothing has worked yet, so that the system may have asked for the PIN
std::optional<Verdict> VerdictOf(const Attempt& attempt, bool is_first);

}  // namespace kelvrin::app
