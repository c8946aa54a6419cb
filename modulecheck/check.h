// The whole run: the module as it is, and the module behind the adapter.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

#include "encoding/secret.h"
#include "modulecheck/conclusion.h"

namespace kelvrin::modulecheck {

using encoding::Secret;

struct CheckOrder {
  std::string program;  // this one
  std::string module;
  std::string adapter;             // the adapter's library; empty: there is none
  std::string reader_name;         // empty: none is configured
  bool through_adapter = false;    // list and judge the module behind the adapter
  std::string adapter_config;      // path of a file with further lines for it; empty: none
  std::chrono::seconds time{300};  // for everything; the module as it is gets half of it
};

// The report:
//   {"module", "reader", "listing": {"of": "module" | "adapter", ... (see listing.h)},
//    "expectations": [{"name", "topic", "expects", "verdict", "rules": [NAME],
//                      "asItIs": Judgement, "throughAdapter": Judgement, "advice"}],
//    "leftOutByAdapter": [{"label", "id", "reason"}], "warnings": [TEXT],
//    "notJudged": {"reason", "text"}, "conclusion", "exitStatus"}
// "throughAdapter" and "notJudged" are there only where they apply; the reasons are those of
// worker.h, and "adapter" where the adapter cannot be used. `pin` is null when nobody is to log in.
// Throws Failure when there is nothing to report, and Interrupted.
nlohmann::json Check(const CheckOrder& order, const Secret* pin);

// The report as text, for people. Throws nlohmann::json::exception when it is none.
std::string ToText(const nlohmann::json& report);

// The report of a check that ended with a failure: "failure" is there beside "module", "reader",
// "conclusion" and "exitStatus".
nlohmann::json FailureReport(const CheckOrder& order, const Failure& failure);

}  // namespace kelvrin::modulecheck
