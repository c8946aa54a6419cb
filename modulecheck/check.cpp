#include "modulecheck/check.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>

#include "modulecheck/adapter_copy.h"
#include "modulecheck/files.h"
#include "modulecheck/listing.h"
#include "modulecheck/text.h"
#include "modulecheck/verdict.h"
#include "modulecheck/worker.h"
#include "modulecheck/worker_process.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;

// How the adapter begins what it says on standard error.
constexpr char kAdapterSays[] = "Kelvrin adapter: ";

// What is known of the PIN. A run makes one failed login at most.
enum class LoginState {
  kUntried,
  kAccepted,
  kOver,  // refused, withheld, or nobody knows what became of the login
};

std::string Locate(const std::string& module) {
  if (!Exists(module)) throw Failure("there is no file " + module);
  if (!IsPlainFile(module)) throw Failure(module + " is no plain file");
  return AbsolutePath(module);
}

std::string ReadLines(const std::string& path) {
  if (path.empty()) return "";
  if (IsPlainFile(path) && std::ifstream(path)) return ReadFile(path);
  throw Failure("the file " + path + " cannot be read", Conclusion::kWrongUsage);
}

// The last line of standard error that begins so; empty when there is none.
std::string LastLine(const std::vector<std::string>& lines, std::string_view beginning) {
  const auto found = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string& line) {
    return line.starts_with(beginning);
  });
  return found == lines.rend() ? "" : *found;
}

// What a worker found, with a judgement for every expectation.
struct Phase {
  json listing = json::object();
  std::map<std::string, Judgement> results;
  std::optional<json> not_judged;
  std::vector<std::string> errors;
  bool has_crashed = false;

  const json* judged_slot() const {
    const std::size_t number = listing.value("judged", std::size_t{0});
    return number == 0 ? nullptr : &listing.at("slots").at(number - 1);
  }
  bool is_met(std::string_view name) const {
    return results.at(std::string(name)).outcome == Outcome::kMet;
  }
  // Nobody knows anything behind an adapter that cannot be used.
  void Forget(const std::string& why) {
    for (const Expectation& expectation : Expectations()) {
      results[std::string(expectation.name)] = Unknown(why);
    }
  }
};

class Run {
 public:
  Run(const CheckOrder& order, const Secret* pin)
      : order_(order),
        pin_(pin),
        module_(Locate(order.module)),
        lines_(ReadLines(order.adapter_config)),
        start_(std::chrono::steady_clock::now()) {}

  json Make() {
    as_it_is_ = Go({.library = module_}, order_.time / 2.0);
    not_judged_ = as_it_is_.not_judged;
    // A card that shows only behind the adapter is not the one that the PIN is of.
    if (not_judged_) login_ = LoginState::kOver;
    if (NeedsAdapter()) BehindAdapter();
    json report = {{"module", module_}, {"reader", order_.reader_name}};
    report["expectations"] = Judge();
    report["leftOutByAdapter"] = json::array();
    if (behind_) report["leftOutByAdapter"] = LeftOut(as_it_is_.listing, behind_->listing);
    WarnOfSlots();
    const bool shows_behind =
        behind_ && (order_.through_adapter ||
                    (as_it_is_.judged_slot() == nullptr && behind_->judged_slot() != nullptr));
    report["listing"] = shows_behind ? behind_->listing : as_it_is_.listing;
    report["listing"]["of"] = shows_behind ? "adapter" : "module";
    report["warnings"] = warnings_;
    const Conclusion conclusion = Conclude(verdicts_, !not_judged_);
    if (not_judged_) report["notJudged"] = *not_judged_;
    report["conclusion"] = conclusion;
    report["exitStatus"] = static_cast<int>(conclusion);
    return report;
  }

 private:
  // Runs a worker until so long after the start.
  Phase Go(WorkerOrder order, std::chrono::duration<double> time) {
    order.reader_name = order_.reader_name;
    order.log_in = pin_ != nullptr && login_ != LoginState::kOver;
    using Clock = std::chrono::steady_clock;
    const WorkerResult worker =
        RunWorkerProcess(order_.program, ToArguments(order), order.log_in ? pin_ : nullptr, folder_,
                         start_ + std::chrono::duration_cast<Clock::duration>(time));
    const json& document = worker.document;
    if (document.contains("failure")) FailToLoad(order, worker);
    Phase phase;
    phase.errors = worker.errors;
    phase.has_crashed = !worker.ending.empty();
    phase.listing = document.value("listing", json::object());
    phase.results = document.value("results", json::object()).get<decltype(phase.results)>();
    if (document.contains("notJudged")) phase.not_judged = document.at("notJudged");
    for (const json& warning : document.value("warnings", json::array())) Warn(warning);
    const std::string login = document.value("login", "none");
    if (login != "none") {
      login_ = login == "accepted" ? LoginState::kAccepted : LoginState::kOver;
    }
    if (phase.has_crashed) {
      const std::string step = document.value("step", std::string(kBringUpStep));
      const std::string where = order.is_adapter ? "behind the adapter " : "";
      Warn(where + "the check ended in the step " + step + ": " + worker.ending);
      phase.results[step == kBringUpStep ? std::string(kInitialise) : step] = Unmet(worker.ending);
    }
    Complete(order, &phase);
    return phase;
  }

  // The linker's own reason, where there is one.
  [[noreturn]] void FailToLoad(const WorkerOrder& order, const WorkerResult& worker) const {
    constexpr std::string_view kLoader = "kvdl_dlopen failed: ";
    std::string reason = worker.document.at("failure");
    if (!worker.errors.empty()) reason = worker.errors.back();
    if (reason.starts_with(kLoader)) reason.erase(0, kLoader.size());
    if (!order.is_adapter) throw Failure(module_ + " is no PKCS#11 module: " + reason);
    throw Failure("the adapter " + order_.adapter + " cannot be used: " + reason,
                  Conclusion::kNotJudged);
  }

  void Complete(const WorkerOrder& order, Phase* phase) const {
    for (const Expectation& expectation : Expectations()) {
      const std::string name(expectation.name);
      if (NeedsLogin(expectation) && pin_ == nullptr) {
        phase->results[name] = NotTried("needs --pin-file");
      } else if (expectation.needs == Needs::kLoginToAdapter && !order.derives) {
        phase->results[name] = NotTried("needs --adapter");
      } else {
        phase->results.try_emplace(name, Unknown("not reached"));
      }
    }
  }

  bool NeedsAdapter() const {
    return order_.through_adapter || std::ranges::any_of(as_it_is_.results, [](const auto& result) {
             return result.second.outcome == Outcome::kUnmet ||
                    result.second.outcome == Outcome::kUnknown;
           });
  }

  void BehindAdapter() {
    Phase& none = behind_.emplace();
    if (not_judged_ && not_judged_->at("reason") == "card-pulled") {
      none.Forget("the card was pulled");
      return;
    }
    if (order_.adapter.empty()) {
      Blame(none, "the adapter's library was not found: install it beside this program");
      return;
    }
    std::string lines = lines_;
    if (!as_it_is_.is_met(kCardNumber) && !HasKey(lines, "card-number")) {
      lines += "\ncard-number = serial\n";
    }
    const AdapterCopy copy =
        CopyAdapter(folder_, order_.adapter, module_, order_.reader_name, lines);
    WorkerOrder order = {.library = copy.library, .is_adapter = true};
    order.derives = order_.through_adapter;
    if (const json* const slot = as_it_is_.judged_slot()) {
      order.serial = slot->at("serial");
      order.label = slot->at("label");
    }
    TakeTrouble(copy, behind_.emplace(Go(order, order_.time)));
  }

  // What stands in the way behind the adapter: is it the module, or the adapter's configuration?
  void TakeTrouble(const AdapterCopy& copy, Phase& behind) {
    const std::string file =
        Printable(order_.adapter_config.empty() ? "its configuration" : order_.adapter_config);
    std::string why = LastLine(behind.errors, kAdapterSays);
    if (!why.empty()) why.insert(0, ": ");
    const std::size_t place = why.find(copy.configuration);
    const bool names_configuration = place != std::string::npos;
    if (names_configuration) why.replace(place, copy.configuration.size(), file);
    if (!behind.is_met(kInitialise)) {
      const bool is_adapters = as_it_is_.is_met(kInitialise) || names_configuration;
      if (!behind.has_crashed && is_adapters) Blame(behind, "the adapter does not come up" + why);
      return;
    }
    const bool is_card_missing = behind.not_judged && behind.not_judged->at("reason") == "no-card";
    if (is_card_missing && as_it_is_.judged_slot() != nullptr) {
      Blame(behind, "the adapter shows no card: none that is there fits " + file + why);
    } else if (!not_judged_) {
      not_judged_ = behind.not_judged;
    }
  }

  void Blame(Phase& behind, const std::string& why) {
    behind.Forget(why);
    if (!not_judged_) not_judged_ = {{"reason", "adapter"}, {"text", why}};
  }

  json Judge() {
    json all = json::array();
    for (const Expectation& expectation : Expectations()) {
      const std::string name(expectation.name);
      const Judgement& as_it_is = as_it_is_.results.at(name);
      std::optional<Judgement> behind;
      if (behind_) behind = behind_->results.at(name);
      const Verdict verdict = Decide(expectation, as_it_is, behind, order_.through_adapter);
      verdicts_.push_back(verdict);
      const bool helps =
          verdict == Verdict::kThroughAdapter && as_it_is.outcome != Outcome::kUnknown;
      json one = {{"name", name},
                  {"topic", expectation.topic},
                  {"expects", expectation.sentence},
                  {"verdict", verdict},
                  {"rules", helps ? RuleNames(expectation) : std::vector<std::string>()},
                  {"asItIs", as_it_is},
                  {"advice", Advise(expectation, verdict, as_it_is.outcome)}};
      if (behind) one["throughAdapter"] = *behind;
      all.push_back(one);
    }
    return all;
  }

  // A reader name that no slot has, and two different tokens, which would go by without a word.
  void WarnOfSlots() {
    const Phase* const phases[] = {&as_it_is_, behind_ ? &*behind_ : nullptr};
    for (const Phase* const phase : phases) {
      if (phase == nullptr || !phase->listing.value("fallback", false)) continue;
      const json& last = phase->listing.at("slots").back();
      Warn("no slot's description contains " + Quoted(order_.reader_name) + ": " +
           (phase == &as_it_is_ ? "" : "behind the adapter ") +
           "the extension would use the LAST slot, " +
           Quoted(last.at("readerName").get<std::string>()) + ", without a word");
    }
    const json* const one = as_it_is_.judged_slot();
    const json* const other = behind_ ? behind_->judged_slot() : nullptr;
    if (one == nullptr || other == nullptr ||
        IsSameToken(one->at("serial"), one->at("label"), other->at("serial"), other->at("label"))) {
      return;
    }
    const auto token = [](const json& slot) {
      return "the token " + Quoted(slot.at("label").get<std::string>()) + ", serial number " +
             Quoted(slot.at("serial").get<std::string>());
    };
    Warn("two different tokens were judged: as it is " + token(*one) + "; behind the adapter " +
         token(*other));
  }

  void Warn(const std::string& warning) {
    if (std::ranges::find(warnings_, warning) == warnings_.end()) warnings_.push_back(warning);
  }

  const CheckOrder& order_;
  const Secret* pin_;
  LoginState login_ = LoginState::kUntried;
  std::string module_;
  std::string lines_;
  std::chrono::steady_clock::time_point start_;
  TemporaryFolder folder_;
  Phase as_it_is_;
  std::optional<Phase> behind_;
  std::optional<json> not_judged_;
  std::vector<std::string> warnings_;
  std::vector<Verdict> verdicts_;
};

}  // namespace

json Check(const CheckOrder& order, const Secret* pin) { return Run(order, pin).Make(); }

json FailureReport(const CheckOrder& order, const Failure& failure) {
  return {{"module", order.module},
          {"reader", order.reader_name},
          {"failure", Printable(failure.what())},
          {"conclusion", failure.conclusion()},
          {"exitStatus", static_cast<int>(failure.conclusion())}};
}

}  // namespace kelvrin::modulecheck
