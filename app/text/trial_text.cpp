// What is said while a key is tried, and afterwards.
#include "app/text/texts.h"

namespace kelvrin::app {
namespace {

const char* SchemeKey(Scheme scheme) {
  switch (scheme) {
    case Scheme::kPkcs1:
      return "SCHEME_PKCS1";
    case Scheme::kPss:
      return "SCHEME_PSS";
    case Scheme::kEcdsa:
      return "SCHEME_ECDSA";
    case Scheme::kDecryption:
      return "SCHEME_DECRYPTION";
  }
  return "";
}

const char* VerdictKey(Verdict verdict) {
  switch (verdict) {
    case Verdict::kWorked:
      return "TRIAL_WORKED";
    case Verdict::kUnsupported:
      return "TRIAL_UNSUPPORTED";
    case Verdict::kPinRefused:
      return "TRIAL_PIN_REFUSED";
    case Verdict::kNoReason:
      return "TRIAL_NO_REASON";
    case Verdict::kPinNotEntered:
      return "TRIAL_PIN_NOT_ENTERED";
    case Verdict::kCardGone:
      return "TRIAL_CARD_GONE";
    case Verdict::kKeyNotFound:
      return "TRIAL_KEY_NOT_FOUND";
    case Verdict::kWrongResult:
      return "TRIAL_WRONG_RESULT";
    case Verdict::kFailed:
      return "TRIAL_FAILED";
    case Verdict::kCancelled:
      return "TRIAL_CANCELLED";
  }
  return "";
}

}  // namespace

std::string Texts::Schemes(const Trial& trial, Attempt::End end) const {
  std::string names;
  for (const Trial::Result& result : trial.results()) {
    if (result.attempt.end != end) continue;
    names += (names.empty() ? "" : ", ") + Get(SchemeKey(result.scheme));
  }
  return names;
}

// The last attempt's error, for those who look it up.
std::string Texts::ErrorOf(const Trial& trial) const {
  if (trial.results().empty()) return "";
  const Attempt& attempt = trial.results().back().attempt;
  return Fill("TRIAL_ERROR", {{"description", attempt.description},
                              {"domain", attempt.domain},
                              {"code", std::to_string(attempt.code)}});
}

std::string Texts::TrialSentence(const Trial& trial) const {
  if (const auto& verdict = trial.verdict()) return EndSentence(trial, *verdict);
  if (const auto scheme = trial.running()) {
    return Fill("TRIAL_RUNNING", {{"scheme", Get(SchemeKey(*scheme))},
                                  {"number", std::to_string(trial.done() + 1)},
                                  {"count", std::to_string(trial.count())},
                                  {"name", trial.certificate().name}});
  }
  return "";
}

std::string Texts::EndSentence(const Trial& trial, Verdict verdict) const {
  const std::string worked = Schemes(trial, Attempt::End::kWorked);
  std::string text = Fill(
      VerdictKey(verdict),
      {{"schemes",
        verdict == Verdict::kWrongResult ? Schemes(trial, Attempt::End::kWrongResult) : worked},
       {"error", ErrorOf(trial)},
       {"name", trial.certificate().name}});
  if (verdict != Verdict::kWorked && !worked.empty()) {
    text += " " + Fill("TRIAL_WORKED_BEFORE", {{"schemes", worked}});
  }
  const std::string unsupported = Schemes(trial, Attempt::End::kUnsupported);
  if (verdict != Verdict::kUnsupported && !unsupported.empty()) {
    text += " " + Fill("TRIAL_LACKS", {{"schemes", unsupported}});
  }
  return text;
}

}  // namespace kelvrin::app
