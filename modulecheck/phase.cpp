#include "modulecheck/phase.h"

#include <algorithm>

#include "modulecheck/channel.h"
#include "modulecheck/expectations.h"
#include "modulecheck/worker.h"
#include "modulecheck/worker_process.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kNeedsPin[] = "needs --pin-file";
constexpr char kLoginOver[] = "needs a login, and there was none";

bool IsLoginStep(const std::string& step) {
  const Expectation* const expectation = FindExpectation(step);
  return expectation != nullptr && NeedsLogin(*expectation);
}

// What the dynamic linker said, without the loader's own words before it.
std::string LinkersReason(const std::string& line) {
  constexpr std::string_view kLoader = "kvdl_dlopen failed: ";
  return line.starts_with(kLoader) ? line.substr(kLoader.size()) : line;
}

class Phase {
 public:
  Phase(const PhaseOrder& order, const Secret* pin, LoginState* login)
      : order_(order), pin_(pin), login_(login), left_(order.steps) {}

  PhaseResult Run() {
    for (;;) {
      SettleLoginSteps();
      const std::size_t before = left_.size();
      if (before == 0 || !RunWorker() || left_.size() == before) break;
    }
    for (const std::string& step : left_) {
      if (step != kListingStep) result_.judgements[step] = Unknown("the module did not come up");
    }
    return result_;
  }

 private:
  // Steps that need a login that is not to be had.
  void SettleLoginSteps() {
    if (*login_ != LoginState::kNoPin && *login_ != LoginState::kOver) return;
    const char* const why = *login_ == LoginState::kNoPin ? kNeedsPin : kLoginOver;
    std::erase_if(left_, [&](const std::string& step) {
      if (!IsLoginStep(step)) return false;
      result_.judgements.emplace(step, NotTried(why));
      return true;
    });
  }

  // Whether another worker may go on where this one ended.
  bool RunWorker() {
    const bool log_in = std::any_of(left_.begin(), left_.end(), IsLoginStep);
    const WorkerOrder worker_order = {order_.library, order_.reader_name, log_in, left_};
    WorkerProcess worker(order_.program, ToArguments(worker_order), log_in ? pin_ : nullptr);
    step_ = kBringUpStep;
    while (const auto message = worker.Next(order_.patience)) {
      try {
        if (message->contains("end")) return false;
        Take(*message, worker);
      } catch (const nlohmann::json::exception&) {
        continue;  // no worker says so; whatever it was, it is no answer
      }
      if (!result_.failure.empty()) return false;
    }
    TakeEnding(worker.ending());
    return step_ != kBringUpStep;
  }

  void Take(const nlohmann::json& message, const WorkerProcess& worker) {
    if (message.contains("begin")) {
      if (step_ == kBringUpStep) result_.last_error = worker.LastError();
      message.at("begin").get_to(step_);
    } else if (message.contains("judgement")) {
      const auto step = message.at("of").get<std::string>();
      result_.judgements[step] = message.at("judgement").get<Judgement>();
      std::erase(left_, step);
    } else if (message.contains("listing")) {
      result_.listing = message.at("listing").get<Listing>();
      std::erase(left_, kListingStep);
    } else if (message.contains("privateKeys")) {
      message.at("privateKeys").get_to(result_.private_keys);
    } else if (message.contains("warning")) {
      Warn(message.at("warning").get<std::string>());
    } else if (message.contains("login")) {
      const bool is_accepted = message.at("login") == "accepted";
      *login_ = is_accepted ? LoginState::kAccepted : LoginState::kOver;
    } else if (message.contains("failure")) {
      message.at("failure").get_to(result_.failure);
      if (!worker.LastError().empty()) result_.failure = LinkersReason(worker.LastError());
    }
  }

  void TakeEnding(const std::string& ending) {
    const std::string step = step_ == kBringUpStep ? "initialise" : step_;
    if (std::find(left_.begin(), left_.end(), step) == left_.end()) return;
    std::erase(left_, step);
    if (step == kListingStep) {
      Warn(ending + " while its objects were listed");
    } else {
      result_.judgements[step] = Unmet(ending);
    }
  }

  void Warn(const std::string& warning) {
    auto& warnings = result_.warnings;
    if (std::find(warnings.begin(), warnings.end(), warning) == warnings.end()) {
      warnings.push_back(warning);
    }
  }

  const PhaseOrder& order_;
  const Secret* pin_;
  LoginState* login_;
  std::vector<std::string> left_;
  std::string step_;
  PhaseResult result_;
};

}  // namespace

PhaseResult RunPhase(const PhaseOrder& order, const Secret* pin, LoginState* login) {
  return Phase(order, pin, login).Run();
}

}  // namespace kelvrin::modulecheck
