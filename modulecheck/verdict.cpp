#include "modulecheck/verdict.h"

#include <cctype>

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

bool IsBad(Verdict verdict) {
  return verdict == Verdict::kNotMet || verdict == Verdict::kNotReached;
}

// What is seen of an adapter that cannot be used, as that it does not come up, is judged even so.
std::string AdviseToCure(const ExpectationReport& report, std::string cure) {
  cure += '.';
  if (!report.through_adapter || report.through_adapter->outcome != Outcome::kUnmet) {
    return "It could not be judged behind the adapter: " + cure;
  }
  cure.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(cure.front())));
  return cure;
}

}  // namespace

Verdict Decide(const Judgement& as_it_is, const std::optional<Judgement>& adapter,
               bool is_about_adapter) {
  const Verdict alone = DecideAsItIs(as_it_is.outcome);
  if (!adapter || (alone == Verdict::kMet && !is_about_adapter)) return alone;
  switch (adapter->outcome) {
    case Outcome::kMet:
      return alone == Verdict::kMet || alone == Verdict::kNotConcerned ? Verdict::kMet
                                                                       : Verdict::kThroughAdapter;
    case Outcome::kNotConcerned:
      // What stood in the way is not there any more.
      return IsBad(alone) ? Verdict::kThroughAdapter : alone;
    case Outcome::kNotTried:
      return IsBad(alone) ? alone : Verdict::kNotTried;
    case Outcome::kUnknown:
      return alone == Verdict::kNotMet ? Verdict::kNotMet : Verdict::kNotReached;
    case Outcome::kUnmet:
      break;
  }
  return Verdict::kNotMet;
}

std::string Advise(const ExpectationReport& report, const std::string& cure) {
  const Expectation& expectation = *report.expectation;
  switch (report.verdict) {
    case Verdict::kThroughAdapter: {
      // What was not reached as it is needs no rule of its own, as far as anybody knows.
      const bool was_reached = report.as_it_is.outcome != Outcome::kUnknown;
      if (expectation.rules.empty() || !was_reached) return "Put the adapter in front of it.";
      const char* const noun = expectation.rules.size() == 1 ? "rule " : "rules ";
      return "Put the adapter in front of it (" + std::string(noun) + RuleNames(expectation.rules) +
             ").";
    }
    case Verdict::kNotMet:
      if (!cure.empty() && !expectation.rules.empty()) return AdviseToCure(report, cure);
      return std::string(expectation.advice);
    case Verdict::kNotReached:
      return "See first to what is not met.";
    case Verdict::kMet:
    case Verdict::kNotTried:
    case Verdict::kNotConcerned:
      break;
  }
  return "";
}

Conclusion Conclude(const std::vector<ExpectationReport>& expectations) {
  Conclusion conclusion = Conclusion::kWorks;
  for (const ExpectationReport& report : expectations) {
    if (IsBad(report.verdict)) return Conclusion::kDoesNotWork;
    if (report.verdict == Verdict::kThroughAdapter) conclusion = Conclusion::kWorksWithAdapter;
  }
  return conclusion;
}

}  // namespace kelvrin::modulecheck
