// A worker that runs beside this program.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "encoding/secret.h"

namespace kelvrin::modulecheck {

struct WorkerResult {
  nlohmann::json document;  // the last one that it wrote (see worker.h); null when it wrote none
  std::string ending;       // how it ended too early, as in "the module ended the process (exit
                            // status 5)"; empty when it came to its end
  std::vector<std::string> errors;  // lines of its standard error, fit to be printed
};

// Starts the program with these arguments behind its name and waits until it ends, or is ended
// because the time is over. Its standard output goes nowhere, so that nothing that a module prints
// mixes with the report. The PIN, if there is one, is written to its standard input, which is empty
// otherwise. Throws Failure when it cannot be started, and Interrupted.
WorkerResult RunWorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                              const encoding::Secret* pin,
                              std::chrono::steady_clock::time_point deadline);

}  // namespace kelvrin::modulecheck
