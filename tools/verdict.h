// What follows from what the probes found.
#pragma once

#include <optional>
#include <vector>

#include "tools/report.h"

namespace kelvrin::modulecheck {

// The verdict on one expectation. `adapter` is what was found through the adapter, if it was tried
// there. `is_about_adapter` says that the module behind the adapter is what is judged.
Verdict Decide(const Judgement& as_it_is, const std::optional<Judgement>& adapter,
               bool is_about_adapter);

// One sentence on what to do; empty where there is nothing to do. `adapter_failed` says that nobody
// knows what the adapter would do about it.
std::string Advise(const ExpectationReport& report, bool adapter_failed = false);

Conclusion Conclude(const std::vector<ExpectationReport>& expectations);

}  // namespace kelvrin::modulecheck
