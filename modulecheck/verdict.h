// What follows from what the probes found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "modulecheck/report.h"

namespace kelvrin::modulecheck {

// The verdict on one expectation. `adapter` is what was found through the adapter, if it was tried
// there. `is_about_adapter` says that the module behind the adapter is what is judged.
Verdict Decide(const Judgement& as_it_is, const std::optional<Judgement>& adapter,
               bool is_about_adapter);

// One sentence on what to do; empty where there is nothing to do. `cure` is what has to be done
// before the module can be judged behind the adapter, as in "correct my.conf"; empty when it could.
std::string Advise(const ExpectationReport& report, const std::string& cure = "");

Conclusion Conclude(const std::vector<ExpectationReport>& expectations);

}  // namespace kelvrin::modulecheck
