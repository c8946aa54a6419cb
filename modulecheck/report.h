// What a run found out, as it is told to the user.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "modulecheck/expectations.h"
#include "modulecheck/judgement.h"
#include "modulecheck/listing.h"

namespace kelvrin::modulecheck {

enum class Verdict {
  kMet,
  kThroughAdapter,
  kNotMet,
  kNotReached,  // something that it needs is not met; no better than that
  kNotTried,
  kNotConcerned,
};

struct ExpectationReport {
  const Expectation* expectation = nullptr;
  Judgement as_it_is = {};
  std::optional<Judgement> through_adapter = {};  // when it was tried
  Verdict verdict = Verdict::kNotMet;
  std::string advice = "";  // one sentence; empty when none is needed
};

// The program's exit statuses.
enum class Conclusion : int { kWorks = 0, kDoesNotWork = 1, kWorksWithAdapter = 3 };
inline constexpr int kWrongUsage = 2;

struct Report {
  std::string module;           // its path
  std::string reader_name;      // empty: none
  bool behind_adapter = false;  // what the listing is of
  bool adapter_failed = false;  // it was needed, but there is none, or none with a slot
  Listing listing;
  std::vector<PrivateKeyListing> private_keys;  // that show after the login
  std::vector<std::string> warnings;
  std::vector<ExpectationReport> expectations;
  Conclusion conclusion = Conclusion::kDoesNotWork;
};

// For people.
std::string ToText(const Report& report);

// One JSON document with the same facts.
std::string ToJson(const Report& report);

}  // namespace kelvrin::modulecheck
