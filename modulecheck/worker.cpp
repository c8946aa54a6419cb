#include "modulecheck/worker.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "modulecheck/channel.h"
#include "modulecheck/expectations.h"
#include "modulecheck/failure.h"
#include "modulecheck/login.h"
#include "modulecheck/make_listing.h"
#include "modulecheck/objects.h"
#include "modulecheck/pin_file.h"

namespace kelvrin::modulecheck {
namespace {

class Worker {
 public:
  Worker(const WorkerOrder& order, const Channel& channel, Secret& pin)
      : order_(order),
        channel_(channel),
        module_(order.library, order.reader_name),
        login_(module_, channel, pin) {}

  void Run() {
    for (const std::string& step : order_.steps) {
      channel_.Send({{"begin", step}});
      if (step == kListingStep) {
        channel_.Send({{"listing", MakeListing(module_)}});
      } else if (const Expectation* const expectation = FindExpectation(step)) {
        channel_.Send({{"judgement", Judge(*expectation)}, {"of", step}});
      }
    }
  }

 private:
  Judgement Judge(const Expectation& expectation) {
    if (expectation.needs != Needs::kNothing && !module_.is_initialised()) {
      return Unknown("the module is not initialised");
    }
    const bool needs_token =
        expectation.needs != Needs::kNothing && expectation.needs != Needs::kInitialised;
    if (needs_token && module_.judged() == 0) return Unknown("there is no session on a token");
    try {
      if (!NeedsLogin(expectation)) return expectation.probe(module_);
      if (!order_.log_in) return NotTried("needs a login, and there was none");
      Judgement login = LogIn();
      if (expectation.name == kLoginName) return login;
      if (login.outcome != Outcome::kMet) return NotTried("needs a login, and there was none");
      return expectation.probe(module_);
    } catch (const CallFailed& failed) {
      return {Outcome::kUnknown, failed.call, failed.result, "something that it needs failed"};
    }
  }

  Judgement LogIn() {
    const bool is_first = !login_.is_tried();
    const Judgement& judgement = login_.Judge();
    if (is_first && judgement.outcome == Outcome::kMet) {
      channel_.Send({{"privateKeys", ListPrivateKeys(module_)}});
    }
    return judgement;
  }

  const WorkerOrder& order_;
  const Channel& channel_;
  Module module_;
  Login login_;
};

}  // namespace

std::vector<std::string> ToArguments(const WorkerOrder& order) {
  std::vector<std::string> arguments = {std::string(kWorkerArgument), order.library,
                                        order.reader_name, order.log_in ? "login" : "no-login"};
  arguments.insert(arguments.end(), order.steps.begin(), order.steps.end());
  return arguments;
}

WorkerOrder ToOrder(const std::vector<std::string>& arguments) {
  if (arguments.size() < 4) return {};
  return {arguments[1],
          arguments[2],
          arguments[3] == "login",
          {arguments.begin() + 4, arguments.end()}};
}

void RunWorker(const WorkerOrder& order) {
  // What the module starts does not hold the channel open.
  fcntl(kChannelDescriptor, F_SETFD, FD_CLOEXEC);
  const Channel channel(kChannelDescriptor);
  try {
    Secret pin;
    ForbidCoreFiles();
    if (order.log_in) {
      ForbidDumps();
      ReadPin(STDIN_FILENO, &pin);
    }
    channel.Send({{"begin", kBringUpStep}});
    Worker(order, channel, pin).Run();
    channel.Send({{"end", true}});
  } catch (const Failure& failure) {
    channel.Send({{"failure", failure.what()}});
  }
  // The module's own code that runs at the end of a process is nothing that is judged.
  _exit(EXIT_SUCCESS);
}

}  // namespace kelvrin::modulecheck
