// What the extension expects of its module, one by one.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "adapter/config/rules.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {

enum class Needs {
  kNothing,         // judged whatever the module is like
  kInitialised,     // a module that is initialised
  kToken,           // a session on a card
  kLogin,           // a session that is logged in
  kLoginToAdapter,  // the same, and only behind the adapter, where that is what is judged
};

// Whether the adapter has anything to do with it.
enum class Help { kNone, kAlways, kByRules };

struct Expectation {
  std::string_view name;      // in the JSON report
  std::string_view topic;     // the heading in the report for people
  std::string_view sentence;  // what is expected
  Needs needs;
  Probe* probe;  // null for what the worker itself judges
  Help help;
  std::vector<adapter::Rule> rules = {};  // the switchable ones that bring it about, with kByRules
  // One sentence for when the adapter does not help either.
  std::string_view advice = "Ask the module's maker.";
};

// The names of those that the worker itself judges.
inline constexpr std::string_view kListing = "listing";
inline constexpr std::string_view kSetUp = "set-up";
inline constexpr std::string_view kLogin = "login";
// The one that fails when the module does not come up, and the one that a line of the adapter's
// configuration mends.
inline constexpr std::string_view kInitialise = "initialise";
inline constexpr std::string_view kCardNumber = "card-number";

// All of them, in the order in which they are judged: those that want a login come last, and
// finalising ends it.
std::span<const Expectation> Expectations();

bool NeedsLogin(const Expectation& expectation);

// The names of the rules as the adapter's configuration has them.
std::vector<std::string> RuleNames(const Expectation& expectation);

}  // namespace kelvrin::modulecheck
