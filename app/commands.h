// What the application does without a window, for administrators.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "app/model/system.h"
#include "app/text/texts.h"

namespace kelvrin::app {

struct Options {
  enum class Action { kWindow, kList, kReport, kSshKey };
  Action action = Action::kWindow;
  std::string label;  // of kSshKey
};

// Reads the command line. What the system adds to an application's is left alone. Returns nothing
// when the program is to end with `status`: after --help, or after wrong usage, which has been told
// on standard error.
std::optional<Options> Parse(int argc, const char* const* argv, int* status);

// Lets answers come until a condition holds.
using Await = std::function<void(const std::function<bool()>& condition)>;

// Carries out any action but the window. Returns the exit status: 0, or 1 when what was asked for
// is not there: a card that is ready, or a key of that label. Why is told on `errors`.
int RunCommand(const Options& options, System* system, const Texts& texts, const Await& await,
               std::ostream& output, std::ostream& errors);

}  // namespace kelvrin::app
