#include "tools/check.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tools/adapter_copy.h"
#include "tools/channel.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/phase.h"
#include "tools/text.h"
#include "tools/verdict.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kNeverAsItIs[] = "never tried without the adapter";

// Where the module is, without following a link in its own name: it may look at that.
std::string Locate(const std::string& module) {
  if (!Exists(module)) throw Failure("there is no file " + module);
  if (IsFolder(module)) throw Failure(module + " is a folder");
  const std::string absolute = AbsolutePath(module);
  const std::string parent = RealPath(ParentOf(absolute));
  if (parent.empty()) return absolute;
  return (parent == "/" ? "" : parent) + "/" + NameOf(absolute);
}

std::string ReadText(const std::string& path) {
  if (path.empty()) return "";
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file || IsFolder(path)) throw Failure("the file " + path + " cannot be read");
  return text;
}

bool IsToBeTriedBehindAdapter(const Judgement& as_it_is) {
  return as_it_is.outcome == Outcome::kUnmet || as_it_is.outcome == Outcome::kUnknown ||
         as_it_is.outcome == Outcome::kNotConcerned;
}

class Run {
 public:
  Run(const CheckOrder& order, const Secret* pin)
      : order_(order),
        pin_(pin),
        login_(pin == nullptr ? LoginState::kNoPin : LoginState::kUntried),
        module_(Locate(order.module)),
        lines_(ReadText(order.adapter_config)) {
    report_.module = module_;
    report_.reader_name = order.reader_name;
  }

  Report Make() {
    AsItIs();
    std::vector<std::string> steps = StepsBehindAdapter();
    if (!steps.empty()) BehindAdapter(std::move(steps));
    TakeListing();
    for (const Expectation& expectation : Expectations()) Judge(expectation);
    report_.conclusion = Conclude(report_.expectations);
    return report_;
  }

 private:
  PhaseResult Go(const std::string& library, std::vector<std::string> steps) {
    PhaseResult result =
        RunPhase({order_.program, library, order_.reader_name, std::move(steps), order_.patience},
                 pin_, &login_);
    for (const std::string& warning : result.warnings) Warn(warning);
    return result;
  }

  void AsItIs() {
    std::vector<std::string> steps = {std::string(kListingStep)};
    for (const Expectation& expectation : Expectations()) {
      if (expectation.needs != Needs::kLoginToAdapter) steps.emplace_back(expectation.name);
    }
    as_it_is_ = Go(module_, std::move(steps));
    if (!as_it_is_.failure.empty()) {
      throw Failure(module_ + " is no PKCS#11 module: " + as_it_is_.failure);
    }
  }

  // None when there is nothing to be found out there.
  std::vector<std::string> StepsBehindAdapter() const {
    std::vector<std::string> steps = {std::string(kListingStep)};
    bool is_needed = order_.through_adapter;
    bool needs_login = false;
    for (const Expectation& expectation : Expectations()) {
      const auto found = as_it_is_.judgements.find(std::string(expectation.name));
      if (expectation.needs == Needs::kNothing) {
        // Whether the adapter comes up is asked always.
        steps.emplace_back(expectation.name);
        is_needed |= found->second.outcome != Outcome::kMet;
        continue;
      }
      if (found != as_it_is_.judgements.end()) {
        const Outcome outcome = found->second.outcome;
        is_needed |= outcome == Outcome::kUnmet || outcome == Outcome::kUnknown;
        if (!order_.through_adapter && !IsToBeTriedBehindAdapter(found->second)) continue;
      } else if (!order_.through_adapter) {
        continue;
      }
      needs_login |= NeedsLogin(expectation);
      steps.emplace_back(expectation.name);
    }
    if (!is_needed) return {};
    // A login there is judged too.
    const std::string login(kLoginName);
    if (needs_login && std::find(steps.begin(), steps.end(), login) == steps.end()) {
      const auto first = std::find_if(steps.begin(), steps.end(), [](const std::string& step) {
        const Expectation* const expectation = FindExpectation(step);
        return expectation != nullptr && NeedsLogin(*expectation);
      });
      steps.insert(first, login);
    }
    return steps;
  }

  void BehindAdapter(std::vector<std::string> steps) {
    if (order_.adapter.empty()) {
      report_.adapter_failed = true;
      Warn("the adapter's library was not found: the module was judged without it");
      return;
    }
    const AdapterCopy copy(order_.adapter, module_, order_.reader_name, lines_);
    PhaseResult result = Go(copy.library(), std::move(steps));
    const std::string configuration =
        order_.adapter_config.empty() ? "its configuration" : order_.adapter_config;
    if (!result.failure.empty()) {
      throw Failure("the adapter " + order_.adapter +
                    " cannot be used: " + copy.Renamed(result.failure, configuration));
    }
    Judgement& initialise = result.judgements["initialise"];
    if (initialise.outcome != Outcome::kMet) {
      report_.adapter_failed = true;
      // The adapter says on standard error why it does not come up.
      if (!result.last_error.empty()) {
        initialise.detail = copy.Renamed(result.last_error, configuration);
      }
      Warn("the adapter does not come up" +
           (initialise.detail.empty() ? "" : ": " + initialise.detail));
    }
    behind_ = std::move(result);
  }

  // The listing of what is judged, or of what came up.
  void TakeListing() {
    const bool came_up = as_it_is_.listing && as_it_is_.listing->judged != 0;
    const bool came_up_behind = behind_ && behind_->listing && behind_->listing->judged != 0;
    report_.behind_adapter = order_.through_adapter || (!came_up && came_up_behind);
    const PhaseResult* const shown = report_.behind_adapter && behind_ ? &*behind_ : &as_it_is_;
    if (shown->listing) report_.listing = *shown->listing;
    report_.private_keys = shown->private_keys;
    WarnOfFallback();
    if (came_up && came_up_behind) WarnOfAnotherToken(*as_it_is_.listing, *behind_->listing);
  }

  // A reader name that no reader has: without the adapter the last slot is taken, behind it the
  // first one with a token, which it shows under that name.
  void WarnOfFallback() {
    const Listing& listing = report_.listing;
    const std::string reason =
        "no slot's description contains \"" + Printable(order_.reader_name) + "\": ";
    if (listing.is_fallback && !listing.slots.empty()) {
      Warn(reason + "the extension would use the LAST slot, \"" + listing.slots.back().reader_name +
           "\", without a word");
    } else if (report_.behind_adapter && as_it_is_.listing && as_it_is_.listing->is_fallback &&
               !ChoosesSlot(lines_)) {
      Warn(reason + "the adapter takes the FIRST slot with a token and shows it under that name");
    }
  }

  // Two tokens were judged as if they were one.
  void WarnOfAnotherToken(const Listing& alone, const Listing& behind) {
    const SlotListing& one = alone.slots.at(alone.judged - 1);
    const SlotListing& other = behind.slots.at(behind.judged - 1);
    // The adapter may put the serial number in the place of the label.
    if (one.serial == other.serial) return;
    Warn("two tokens were judged: as it is the one with the label \"" + one.label +
         "\", behind the adapter the one with \"" + other.label + "\"");
  }

  void Judge(const Expectation& expectation) {
    const std::string name(expectation.name);
    ExpectationReport judged = {.expectation = &expectation};
    const auto alone = as_it_is_.judgements.find(name);
    if (alone != as_it_is_.judgements.end()) {
      judged.as_it_is = alone->second;
    } else if (order_.through_adapter) {
      judged.as_it_is = NotTried(pin_ == nullptr ? "needs --pin-file" : kNeverAsItIs);
    } else {
      judged.as_it_is =
          NotTried(pin_ == nullptr ? "needs --adapter and --pin-file" : "needs --adapter");
    }
    if (behind_ && behind_->judgements.contains(name)) {
      judged.through_adapter = behind_->judgements.at(name);
    }
    judged.verdict = Decide(judged.as_it_is, judged.through_adapter, order_.through_adapter);
    judged.advice = Advise(judged, report_.adapter_failed);
    if (judged.verdict == Verdict::kNotMet && ChoosesSlot(lines_) &&
        (name == "reader-name" || name == "token")) {
      judged.advice = "Let the keys that choose the slot, in " + order_.adapter_config +
                      ", fit a token that is there.";
    }
    report_.expectations.push_back(judged);
  }

  void Warn(const std::string& warning) {
    auto& warnings = report_.warnings;
    if (std::find(warnings.begin(), warnings.end(), warning) == warnings.end()) {
      warnings.push_back(warning);
    }
  }

  const CheckOrder& order_;
  const Secret* pin_;
  LoginState login_;
  std::string module_;
  std::string lines_;
  PhaseResult as_it_is_;
  std::optional<PhaseResult> behind_;
  Report report_;
};

}  // namespace

Report Check(const CheckOrder& order, const Secret* pin) { return Run(order, pin).Make(); }

}  // namespace kelvrin::modulecheck
