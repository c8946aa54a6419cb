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
  kToken,           // a session on a token
  kLogin,           // a session that is logged in
  kLoginToAdapter,  // the same, through the adapter alone
};

struct Expectation {
  std::string_view name;      // in the JSON report
  std::string_view topic;     // the heading in the report for people
  std::string_view sentence;  // what is expected
  Needs needs;
  Probe probe;  // null for the login itself
  // The adapter's rules that bring it about; none when it has nothing to do with it.
  std::vector<adapter::Rule> rules;
  std::string_view advice;  // one sentence for when the adapter does not help either
};

// The name of the expectation that the PIN is accepted, which the login itself judges.
inline constexpr std::string_view kLoginName = "login";

// All of them, in the order in which they are judged: those that want a login come last, and
// finalising ends it.
std::span<const Expectation> Expectations();

// Null when there is none of that name.
const Expectation* FindExpectation(std::string_view name);

bool NeedsLogin(const Expectation& expectation);

// The names of the rules as the adapter's configuration has them: "raw-rsa, missing-raw-rsa".
std::string RuleNames(const std::vector<adapter::Rule>& rules);

}  // namespace kelvrin::modulecheck
