// A worker that runs beside this program.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "modulecheck/descriptor.h"
#include "modulecheck/secret.h"

namespace kelvrin::modulecheck {

// Its standard output goes nowhere, so that nothing that a module prints mixes with the report;
// what it writes to standard error is kept. Whatever becomes of it, it is gone with the object.
class WorkerProcess {
 public:
  // Starts the program with these arguments behind its name. The PIN, if there is one, is written
  // to its standard input, which is empty otherwise. Throws Failure when it cannot be started.
  WorkerProcess(const std::string& program, const std::vector<std::string>& arguments,
                const Secret* pin);
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // The next JSON object that the worker sends; lines that are none are passed over. Nothing when
  // it has ended, or says nothing for so long: then it is ended. Throws Interrupted.
  std::optional<nlohmann::json> Next(std::chrono::milliseconds patience);

  // Once Next has given nothing: what happened, as in "the module ended the process (exit status
  // 5)".
  const std::string& ending() const { return ending_; }

  // The last line so far of its standard error, fit to be printed.
  std::string LastError() const;

 private:
  void Start(const std::string& program, const std::vector<std::string>& arguments, int input,
             int channel, int errors);
  std::optional<nlohmann::json> TakeMessage();
  void Read();
  bool HasEnded();
  void End();

  pid_t process_ = -1;  // -1 once it was waited for
  Descriptor channel_;
  Descriptor errors_;
  std::string received_;
  std::string error_text_;
  std::string ending_;
};

}  // namespace kelvrin::modulecheck
