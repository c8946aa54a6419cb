#include "modulecheck/verdict.h"

#include <algorithm>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

// With the module as it is.
Verdict DecideAsItIs(Outcome outcome) {
  switch (outcome) {
    case Outcome::kMet:
      return Verdict::kMet;
    case Outcome::kNotConcerned:
      return Verdict::kNotConcerned;
    case Outcome::kNotTried:
      return Verdict::kNotTried;
    case Outcome::kUnknown:
      return Verdict::kNotReached;
    case Outcome::kUnmet:
      break;
  }
  return Verdict::kNotMet;
}

}  // namespace

Verdict Decide(const Expectation& expectation, const Judgement& as_it_is,
               const std::optional<Judgement>& behind, bool is_about_adapter) {
  const Verdict alone = DecideAsItIs(as_it_is.outcome);
  if (!behind || (alone == Verdict::kMet && !is_about_adapter)) return alone;
  const bool is_bad = alone == Verdict::kNotMet || alone == Verdict::kNotReached;
  switch (behind->outcome) {
    case Outcome::kMet:
      return alone == Verdict::kMet || alone == Verdict::kNotConcerned ? Verdict::kMet
                                                                       : Verdict::kThroughAdapter;
    case Outcome::kNotConcerned:
      // What stood in the way is not there any more.
      return is_bad ? Verdict::kThroughAdapter : alone;
    case Outcome::kNotTried:
    case Outcome::kUnknown:
      if (alone == Verdict::kNotMet && expectation.help == Help::kNone) return alone;
      return is_bad || behind->outcome == Outcome::kUnknown ? Verdict::kNotReached
                                                            : Verdict::kNotTried;
    case Outcome::kUnmet:
      break;
  }
  return Verdict::kNotMet;
}

std::string Advise(const Expectation& expectation, Verdict verdict, Outcome as_it_is) {
  if (verdict == Verdict::kNotMet) return std::string(expectation.advice);
  if (verdict != Verdict::kThroughAdapter || as_it_is == Outcome::kUnknown) return "";
  if (expectation.name == kCardNumber) {
    return "Put the adapter in front of it, with `card-number = serial` in its configuration.";
  }
  const std::vector<std::string> rules = RuleNames(expectation);
  if (rules.empty()) return "Put the adapter in front of it.";
  return std::string("Put the adapter in front of it (") +
         (rules.size() == 1 ? "rule " : "rules ") + Join(rules, ", ") + ").";
}

Conclusion Conclude(const std::vector<Verdict>& verdicts, bool is_judged) {
  const auto has = [&](Verdict verdict) {
    return std::ranges::find(verdicts, verdict) != verdicts.end();
  };
  if (has(Verdict::kNotMet)) return Conclusion::kDoesNotWork;
  if (!is_judged || has(Verdict::kNotReached)) return Conclusion::kNotJudged;
  return has(Verdict::kThroughAdapter) ? Conclusion::kWorksWithAdapter : Conclusion::kWorks;
}

}  // namespace kelvrin::modulecheck
