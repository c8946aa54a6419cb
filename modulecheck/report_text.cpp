// The report for people.
#include <algorithm>

#include "modulecheck/report.h"
#include "modulecheck/report_listing.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kIndent[] = "                 ";

const char* Word(Verdict verdict) {
  switch (verdict) {
    case Verdict::kMet:
      return "  met            ";
    case Verdict::kThroughAdapter:
      return "  with adapter   ";
    case Verdict::kNotReached:
      return "  not reached    ";
    case Verdict::kNotTried:
      return "  not tried      ";
    case Verdict::kNotConcerned:
      return "  not concerned  ";
    case Verdict::kNotMet:
      break;
  }
  return "  NOT MET        ";
}

// What was seen, in one line: "C_Sign gave CKR_DEVICE_ERROR (0x30): ...".
std::string Seen(const Judgement& judgement) {
  std::string text;
  if (judgement.result) text = judgement.call + " gave " + ResultText(*judgement.result);
  if (judgement.detail.empty()) return text;
  return text.empty() ? judgement.detail : text + ", " + judgement.detail;
}

std::string Further(const char* how, const Judgement& judgement) {
  const std::string seen = Seen(judgement);
  return seen.empty() ? "" : kIndent + std::string(how) + seen + "\n";
}

std::string ExpectationText(const ExpectationReport& report) {
  std::string text = Word(report.verdict) + std::string(report.expectation->sentence);
  if (report.verdict == Verdict::kNotTried) return text + " (" + report.as_it_is.detail + ")\n";
  const bool was_reached = report.as_it_is.outcome != Outcome::kUnknown;
  if (report.verdict == Verdict::kNotReached) return text + "\n";
  if (report.verdict == Verdict::kThroughAdapter && !was_reached) {
    return text + " (as it is, not reached)\n";
  }
  text += '\n';
  if (report.verdict == Verdict::kMet || report.verdict == Verdict::kNotConcerned) {
    // What did not concern the module as it is was met behind the adapter.
    const bool is_met_behind =
        report.verdict == Verdict::kMet && report.as_it_is.outcome == Outcome::kNotConcerned;
    return text + Further("", is_met_behind ? report.through_adapter.value_or(report.as_it_is)
                                            : report.as_it_is);
  }
  text += Further("as it is: ", report.as_it_is);
  if (report.through_adapter) text += Further("with the adapter: ", *report.through_adapter);
  return text + kIndent + report.advice + "\n";
}

// The expectations under the headings of their topics, each heading once.
std::string ExpectationsText(const Report& report) {
  std::vector<std::string_view> topics;
  for (const ExpectationReport& expectation : report.expectations) {
    const std::string_view topic = expectation.expectation->topic;
    if (std::find(topics.begin(), topics.end(), topic) == topics.end()) topics.push_back(topic);
  }
  std::string text;
  for (const std::string_view topic : topics) {
    text += std::string(topic) + "\n";
    for (const ExpectationReport& expectation : report.expectations) {
      if (expectation.expectation->topic == topic) text += ExpectationText(expectation);
    }
  }
  return text;
}

std::size_t Count(const Report& report, Verdict verdict) {
  return static_cast<std::size_t>(
      std::count_if(report.expectations.begin(), report.expectations.end(),
                    [&](const ExpectationReport& one) { return one.verdict == verdict; }));
}

bool WorksAsItIs(const Report& report) {
  return std::none_of(
      report.expectations.begin(), report.expectations.end(), [](const ExpectationReport& one) {
        return one.as_it_is.outcome == Outcome::kUnmet || one.as_it_is.outcome == Outcome::kUnknown;
      });
}

std::string ConclusionText(const Report& report) {
  const std::size_t not_tried = Count(report, Verdict::kNotTried);
  std::string text = std::to_string(Count(report, Verdict::kMet)) + " met, " +
                     std::to_string(Count(report, Verdict::kThroughAdapter)) +
                     " met through the adapter, " +
                     std::to_string(Count(report, Verdict::kNotMet)) + " not met, " +
                     std::to_string(Count(report, Verdict::kNotReached)) + " not reached, " +
                     std::to_string(not_tried) + " not tried, " +
                     std::to_string(Count(report, Verdict::kNotConcerned)) + " not concerned.\n";
  if (not_tried != 0) text += "What was not tried does not count.\n";
  const std::string end = not_tried != 0 ? ", as far as it was tried.\n" : ".\n";
  switch (report.conclusion) {
    case Conclusion::kWorks:
      return text + "The module works as it is" + end;
    case Conclusion::kWorksWithAdapter:
      return text + "The module works with the adapter in front of it" + end;
    case Conclusion::kDoesNotWork:
      break;
  }
  if (report.adapter_failed) {
    text += WorksAsItIs(report) ? "The module works as it is" : "The module does not work as it is";
    return text + "; behind the adapter it could not be judged.\n";
  }
  return text + "The module does not work with the extension.\n";
}

}  // namespace

std::string ToText(const Report& report) {
  std::string text = Printable(report.module);
  text += report.behind_adapter ? ", behind the adapter\n" : "\n";
  for (const std::string& warning : report.warnings) text += "WARNING: " + warning + ".\n";
  return text + "\n" + ListingText(report) + "\n" + ExpectationsText(report) + "\n" +
         ConclusionText(report);
}

}  // namespace kelvrin::modulecheck
