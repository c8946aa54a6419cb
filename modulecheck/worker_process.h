// A worker that runs beside this program.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "encoding/secret.h"
#include "modulecheck/files.h"

namespace kelvrin::modulecheck {

// Thrown after a signal that asks the program to end.
struct Interrupted {
  int signal;
};

// From now on SIGINT, SIGTERM and SIGHUP are noted, except those that are ignored.
void NoteInterruptions();

struct WorkerResult {
  nlohmann::json document;  // the last one that it wrote (see worker.h); empty when it wrote none
  std::string ending;       // how it ended too early, as in "the module ended the process (exit
                            // status 5)"; empty when it came to its end
  std::vector<std::string> errors;  // lines of its standard error, fit to be printed
};

// Starts the program with these arguments behind its name and waits until it ends, or is ended
// because the time is over. What it writes goes to files in the folder, and its standard output
// nowhere, so that nothing that a module prints mixes with the report. The PIN, if there is one, is
// its standard input, which is empty otherwise. Throws Failure when it cannot be started, and
// Interrupted.
WorkerResult RunWorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                              const encoding::Secret* pin, TemporaryFolder& folder,
                              std::chrono::steady_clock::time_point deadline);

}  // namespace kelvrin::modulecheck
