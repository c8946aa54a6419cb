// One go through the steps, with the module as it is or behind the adapter.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "modulecheck/judgement.h"
#include "modulecheck/listing.h"
#include "modulecheck/secret.h"

namespace kelvrin::modulecheck {

// What is known of the PIN. A run makes one failed login at most.
enum class LoginState {
  kNoPin,
  kUntried,
  kAccepted,
  kOver,  // it was refused, the token is not to be tried, or nobody knows what became of the login
};

struct PhaseOrder {
  std::string program;                 // that is a worker when told so
  std::string library;                 // the module, or an adapter in front of it
  std::string reader_name;             // empty: none is configured
  std::vector<std::string> steps;      // in this order
  std::chrono::milliseconds patience;  // how long a step may take
};

struct PhaseResult {
  std::string failure;                          // why the library cannot be loaded; else empty
  std::map<std::string, Judgement> judgements;  // one for each step but the listing
  std::optional<Listing> listing;
  std::vector<PrivateKeyListing> private_keys;  // that show after the login
  std::vector<std::string> warnings;
  std::string last_error;  // last line of the worker's standard error when it came up
};

// Runs the steps in a worker, and those that are left when it ends too early in another one.
// `pin` is null without a PIN. Throws Failure when no worker can be started, and Interrupted.
PhaseResult RunPhase(const PhaseOrder& order, const Secret* pin, LoginState* login);

}  // namespace kelvrin::modulecheck
