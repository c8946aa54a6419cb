#include "modulecheck/check.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "modulecheck/adapter_copy.h"
#include "modulecheck/channel.h"
#include "modulecheck/comparison.h"
#include "modulecheck/failure.h"
#include "modulecheck/files.h"
#include "modulecheck/phase.h"
#include "modulecheck/text.h"
#include "modulecheck/verdict.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kNeverAsItIs[] = "never tried without the adapter";
// How the adapter begins what it says on standard error.
constexpr char kAdapterSays[] = "Kelvrin adapter: ";

// Where the module is, without following a link in its own name: it may look at that.
std::string Locate(const std::string& module) {
  if (!Exists(module)) throw Failure("there is no file " + module);
  if (IsFolder(module)) throw Failure(module + " is a folder");
  std::string absolute = AbsolutePath(module);
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
      Blame("the adapter's library was not found: the module was judged without it",
            "install the adapter's library beside this program");
      return;
    }
    const AdapterCopy copy(order_.adapter, module_, order_.reader_name, lines_);
    if (ChoosesSlot(lines_)) KeepPinFromAnotherToken(copy.library());
    PhaseResult result = Go(copy.library(), std::move(steps));
    const std::string configuration =
        order_.adapter_config.empty() ? "its configuration" : order_.adapter_config;
    if (!result.failure.empty()) {
      throw Failure("the adapter " + order_.adapter +
                    " cannot be used: " + copy.Renamed(result.failure, configuration));
    }
    // The adapter says on standard error why it does not come up, or shows no slot.
    const std::string reason = copy.Renamed(result.last_error, configuration);
    Judgement& initialise = result.judgements["initialise"];
    if (initialise.outcome != Outcome::kMet) {
      if (!reason.empty()) initialise.detail = reason;
      Blame("the adapter does not come up" +
                (initialise.detail.empty() ? "" : ": " + initialise.detail),
            CureOfStart(reason));
    } else if (KeysFitNoToken(result)) {
      Blame("the adapter shows no slot" + (reason.empty() ? "" : ": " + reason),
            "let the keys that choose the slot, in " + Printable(order_.adapter_config) +
                ", fit a token that is there");
    }
    behind_ = std::move(result);
  }

  // The PIN is of the token that is judged as it is. Where the adapter's keys choose another one,
  // nobody logs in behind it.
  void KeepPinFromAnotherToken(const std::string& library) {
    if (login_ == LoginState::kNoPin || login_ == LoginState::kOver || !as_it_is_.listing) return;
    const PhaseResult look = Go(library, {std::string(kListingStep)});
    if (!look.listing || AnotherTokenWarning(&*as_it_is_.listing, &*look.listing).empty()) return;
    login_ = LoginState::kOver;
    Warn(
        "not logged in behind the adapter: its keys choose another token, and the PIN is not that "
        "one's");
  }

  // What the adapter says is of its configuration; else it is the module that does not come up.
  std::string CureOfStart(const std::string& reason) const {
    if (!reason.starts_with(kAdapterSays)) {
      return "give the adapter's configuration what the module needs, such as `reserved = ...` "
             "(see --adapter-config)";
    }
    return order_.adapter_config.empty() ? "mend what the warning says of it"
                                         : "correct " + Printable(order_.adapter_config);
  }

  // Whether there are tokens, and the configuration's keys leave none of them.
  bool KeysFitNoToken(const PhaseResult& behind) const {
    if (!ChoosesSlot(lines_) || !behind.listing || !behind.listing->slots.empty()) return false;
    // A module that does not come up as it is shows none.
    if (!as_it_is_.listing || as_it_is_.judgements.at("initialise").outcome != Outcome::kMet) {
      return true;
    }
    const auto& slots = as_it_is_.listing->slots;
    return std::any_of(slots.begin(), slots.end(),
                       [](const SlotListing& slot) { return slot.initialised; });
  }

  // Nobody knows what the adapter would do until the cure is done.
  void Blame(const std::string& warning, const std::string& cure) {
    report_.adapter_failed = true;
    cure_ = cure;
    Warn(warning);
  }

  // The listing of what is judged, or of what came up.
  void TakeListing() {
    const bool came_up = as_it_is_.listing && as_it_is_.listing->judged != 0;
    const bool came_up_behind = behind_ && behind_->listing && behind_->listing->judged != 0;
    report_.behind_adapter = order_.through_adapter || (!came_up && came_up_behind);
    const PhaseResult* const shown = report_.behind_adapter && behind_ ? &*behind_ : &as_it_is_;
    if (shown->listing) report_.listing = *shown->listing;
    report_.private_keys = shown->private_keys;
    const Listing* const alone = as_it_is_.listing ? &*as_it_is_.listing : nullptr;
    const Listing* const behind = behind_ && behind_->listing ? &*behind_->listing : nullptr;
    for (const std::string& warning :
         FallbackWarnings(order_.reader_name, alone, behind, ChoosesSlot(lines_))) {
      Warn(warning);
    }
    const std::string another = AnotherTokenWarning(alone, behind);
    if (!another.empty()) Warn(another);
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
    judged.advice = Advise(judged, cure_);
    // What an adapter that cannot be used leaves open was not tried there.
    if (report_.adapter_failed && judged.verdict == Verdict::kNotMet && judged.through_adapter &&
        judged.through_adapter->outcome == Outcome::kUnknown) {
      judged.through_adapter.reset();
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
  std::string cure_;  // of what the adapter could not be used for; else empty
  Report report_;
};

}  // namespace

Report Check(const CheckOrder& order, const Secret* pin) { return Run(order, pin).Make(); }

}  // namespace kelvrin::modulecheck
