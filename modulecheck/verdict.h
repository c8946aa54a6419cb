// What follows from what the probes found.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "modulecheck/conclusion.h"
#include "modulecheck/expectations.h"

namespace kelvrin::modulecheck {

enum class Verdict {
  kMet,
  kThroughAdapter,
  kNotMet,
  kNotReached,  // nobody knows, because of something else
  kNotTried,
  kNotConcerned,
};

// The verdict on one expectation. `behind` is what was found behind the adapter, if it was tried
// there. `is_about_adapter` says that the module behind the adapter is what is judged.
Verdict Decide(const Expectation& expectation, const Judgement& as_it_is,
               const std::optional<Judgement>& behind, bool is_about_adapter);

// One sentence on what to do; empty where there is nothing to do.
// What was not reached as it is needs no help of the adapter's, as far as anybody knows.
std::string Advise(const Expectation& expectation, Verdict verdict, Outcome as_it_is);

// `is_judged` is false where something other than the module stood in the way, as a wrong PIN.
Conclusion Conclude(const std::vector<Verdict>& verdicts, bool is_judged);

// As the JSON report has them.
NLOHMANN_JSON_SERIALIZE_ENUM(Verdict, {{Verdict::kMet, "met"},
                                       {Verdict::kThroughAdapter, "met-through-adapter"},
                                       {Verdict::kNotMet, "not-met"},
                                       {Verdict::kNotReached, "not-reached"},
                                       {Verdict::kNotTried, "not-tried"},
                                       {Verdict::kNotConcerned, "not-concerned"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Conclusion, {{Conclusion::kDoesNotWork, "does-not-work"},
                                          {Conclusion::kWorks, "works"},
                                          {Conclusion::kWorksWithAdapter, "works-with-adapter"},
                                          {Conclusion::kWrongUsage, "wrong-usage"},
                                          {Conclusion::kNotJudged, "could-not-be-judged"}})

}  // namespace kelvrin::modulecheck
