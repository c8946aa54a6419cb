#include "modulecheck/worker.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "encoding/secret.h"
#include "modulecheck/conclusion.h"
#include "modulecheck/expectations.h"
#include "modulecheck/files.h"
#include "modulecheck/listing.h"

namespace kelvrin::modulecheck {
namespace {

using encoding::Secret;
using nlohmann::json;

constexpr char kNoLogin[] = "needs a login, and there was none";

// Why the PIN is not to be entered: it may be another card's, or it would take the card's last try.
// Empty when it may be. `serial` and `label` are of the token that the PIN is known to belong to;
// empty when none is known.
std::string WhyToWithhold(const Module& module, const std::string& serial,
                          const std::string& label) {
  if (module.choice().choice == Choice::kFallback && module.slots().size() > 1) {
    return "no reader has the name that was given, and the PIN may be another card's";
  }
  if (module.choice().choice == Choice::kRefused &&
      std::ranges::count_if(module.slots(), &SlotFacts::has_card) > 1) {
    return "several cards are there and no reader was named, so the PIN may be another card's; "
           "--reader names one";
  }
  const SlotFacts& slot = module.slot();
  const bool is_known = !serial.empty() || !label.empty();
  if (is_known && !IsSameToken(serial, label, slot.serial(), slot.label())) {
    return "the adapter's configuration chooses another token, and the PIN is not that one's";
  }
  // As it is now: another program may have tried since the slots were listed.
  CK_TOKEN_INFO token = {};
  if (module.p11()->C_GetTokenInfo(slot.id, &token) != CKR_OK) {
    return "the token does not say whether one try is left";
  }
  if ((token.flags & CKF_USER_PIN_LOCKED) != 0) return "the token says that the PIN is locked";
  if ((token.flags & CKF_USER_PIN_FINAL_TRY) != 0) {
    return "the token says that one try of the PIN is left";
  }
  return "";
}

// Whether the results of C_Login say that it is the PIN that is wrong.
bool IsWrongPin(CK_RV result) {
  return result == CKR_PIN_INCORRECT || result == CKR_PIN_INVALID || result == CKR_PIN_LEN_RANGE ||
         result == CKR_PIN_EXPIRED || result == CKR_PIN_LOCKED;
}

class Worker {
 public:
  Worker(const WorkerOrder& order, Secret& pin)
      : order_(order),
        pin_(pin),
        document_({{"step", kBringUpStep},
                   {"listing", json::object()},
                   {"results", json::object()},
                   {"warnings", json::array()},
                   {"login", "none"}}) {}

  void Run() {
    Write();
    try {
      Probe();
    } catch (const Failure& failure) {
      document_["failure"] = failure.what();
    }
    Begin("");
  }

 private:
  void Probe() {
    Module module(order_.library, order_.reader_name);
    document_["listing"] = ListSlots(module);
    if (!module.WhyNoCard().empty()) GiveUp("no-card", module.WhyNoCard());
    for (const Expectation& expectation : Expectations()) {
      if (expectation.needs == Needs::kLoginToAdapter && !order_.derives) continue;
      Begin(expectation.name);
      Judgement judgement = Judge(module, expectation);
      if (expectation.needs != Needs::kInitialised && IsPulled(module, judgement)) {
        GiveUp("card-pulled", "the card was pulled, or was not answering any more, in the step " +
                                  std::string(expectation.name));
        is_pulled_ = true;
        judgement.outcome = Outcome::kUnknown;
      }
      document_["results"][expectation.name] = judgement;
    }
  }

  Judgement Judge(Module& module, const Expectation& expectation) {
    const Needs needs = expectation.needs;
    if (needs != Needs::kNothing && !module.is_initialised()) {
      return Unknown("the module is not initialised");
    }
    const bool needs_card = needs != Needs::kNothing && needs != Needs::kInitialised;
    if (needs_card && module.judged() == 0) return Unknown("there is no session on a card");
    if (needs_card && is_pulled_) return Unknown("the card was pulled");
    if (NeedsLogin(expectation) && !order_.log_in) return NotTried(kNoLogin);
    // What is there may be more after the login, and handles may be others after an operation.
    if (needs != Needs::kToken) contents_.reset();
    ProbeContext context = {module, contents_};
    try {
      if (expectation.name == kListing) {
        ListCard(module, context.contents(), &document_["listing"], &warnings_);
        return Met();
      }
      if (expectation.name == kSetUp) {
        return GoThroughSetUp(module, &document_["listing"]["published"]);
      }
      if (expectation.name == kLogin) return LogIn(context);
      if (NeedsLogin(expectation) && !is_logged_in_) return NotTried(kNoLogin);
      context.is_strict = !order_.is_adapter && expectation.help != Help::kNone;
      Judgement judgement = expectation.probe(context);
      warnings_.insert(warnings_.end(), context.warnings.begin(), context.warnings.end());
      return judgement;
    } catch (const CallFailed& failed) {
      return Unmet(failed.call, failed.result);
    }
  }

  // Logs in once, and not at all where that could cost a card its PIN.
  Judgement LogIn(ProbeContext& context) {
    const Module& module = context.module;
    const std::string why = WhyToWithhold(module, order_.serial, order_.label);
    if (!why.empty()) {
      document_["login"] = "over";
      GiveUp("login-withheld", "not logged in: " + why);
      return Unknown("not logged in: " + why);
    }
    if ((module.slot().token.flags & CKF_USER_PIN_COUNT_LOW) != 0) {
      warnings_.emplace_back("the token says that a wrong PIN was entered before");
    }
    // Told before it happens: who ends here has perhaps used up a try.
    document_["login"] = "tried";
    Write();
    const CK_RV result =
        module.p11()->C_Login(module.session(), CKU_USER,
                              reinterpret_cast<CK_BYTE*>(pin_.bytes().data()), pin_.bytes().size());
    pin_.Wipe();
    document_["login"] = result == CKR_OK ? "accepted" : "over";
    if (IsWrongPin(result)) {
      GiveUp("wrong-pin", "C_Login gave " + ResultText(result) +
                              "; check the PIN before you try again: a card locks itself after a "
                              "few wrong ones");
      return {Outcome::kUnknown, "C_Login", result, ""};
    }
    if (result != CKR_OK) return Unmet("C_Login", result);
    is_logged_in_ = true;
    contents_.reset();
    document_["listing"]["privateKeys"] = ListPrivateKeys(context.contents());
    return Met();
  }

  // Whether the card went while something was tried that failed.
  bool IsPulled(const Module& module, const Judgement& judgement) const {
    if (is_pulled_ || module.judged() == 0 || judgement.outcome != Outcome::kUnmet) return false;
    const CK_RV result = judgement.result.value_or(CKR_OK);
    return result == CKR_DEVICE_REMOVED || module.IsCardGone();
  }

  void GiveUp(const char* reason, const std::string& text) {
    document_["notJudged"] = {{"reason", reason}, {"text", text}};
  }

  void Begin(std::string_view step) {
    document_["step"] = step;
    Write();
  }

  // Ends the process when nobody listens any more.
  void Write() {
    document_["warnings"] = warnings_;
    // Texts are made printable where they are read; this is for what was forgotten.
    const std::string line = document_.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    std::size_t written = 0;
    while (written < line.size()) {
      const ssize_t count =
          write(kDocumentDescriptor, line.data() + written, line.size() - written);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) _exit(EXIT_FAILURE);
      written += static_cast<std::size_t>(count);
    }
  }

  const WorkerOrder& order_;
  Secret& pin_;
  json document_;
  std::vector<std::string> warnings_;
  std::unique_ptr<Contents> contents_;
  bool is_logged_in_ = false;
  bool is_pulled_ = false;
};

}  // namespace

std::vector<std::string> ToArguments(const WorkerOrder& order) {
  return {std::string(kWorkerArgument),
          order.library,
          order.reader_name,
          order.log_in ? "login" : "",
          order.is_adapter ? "adapter" : "",
          order.derives ? "derive" : "",
          order.serial,
          order.label};
}

WorkerOrder ToOrder(const std::vector<std::string>& arguments) {
  if (arguments.size() != ToArguments({}).size()) return {};
  return {arguments[1],          arguments[2], !arguments[3].empty(), !arguments[4].empty(),
          !arguments[5].empty(), arguments[6], arguments[7]};
}

void RunWorker(const WorkerOrder& order) {
  encoding::Secret pin;
  if (order.log_in) {
    pin.Resize(static_cast<std::size_t>(std::max(Fill(STDIN_FILENO, pin.room()), 0L)));
  }
  Worker(order, pin).Run();
  // The module's own code that runs at the end of a process is nothing that is judged.
  _exit(EXIT_SUCCESS);
}

}  // namespace kelvrin::modulecheck
