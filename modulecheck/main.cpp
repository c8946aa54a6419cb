// modulecheck: says whether a PKCS#11 module fits the extension.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string>

#include "modulecheck/adapter_copy.h"
#include "modulecheck/check.h"
#include "modulecheck/options.h"
#include "modulecheck/text.h"
#include "modulecheck/worker.h"
#include "modulecheck/worker_process.h"

namespace kelvrin::modulecheck {
namespace {

void Complain(const std::string& what) {
  std::fprintf(stderr, "modulecheck: %s\n", Printable(what).c_str());
}

// Prints the text; the exit status.
int Print(const std::string& text, int status) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return status;
  }
  Complain("standard output cannot be written");
  return EXIT_FAILURE;
}

std::string ToJson(const nlohmann::json& report) {
  return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// The path by which the program was started: its name as the shell gave it, looked for in PATH when
// it is a bare name.
std::string ProgramPath(const std::string& name) {
  if (name.find('/') != std::string::npos) return AbsolutePath(name);
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return AbsolutePath(candidate);
  }
  throw Failure("the program " + name + " cannot be found; start it by its path");
}

// Keeps this process and its workers from leaving a PIN in a core file when they crash. A limit of
// 1 also keeps Linux from handing the memory to a program, for which 0 counts for nothing.
void ForbidCoreFiles() {
  const rlimit least = {1, 1};
  setrlimit(RLIMIT_CORE, &least);
}

// What a module writes goes to files of the worker's: one that never stops is ended by a signal
// before it fills the disk.
void LimitFiles() {
  constexpr rlim_t kMost = 16 << 20;  // bytes
  const rlimit most = {kMost, kMost};
  setrlimit(RLIMIT_FSIZE, &most);
}

int Run(const Options& options, const std::string& program_name) {
  CheckOrder order;
  order.module = options.module;
  order.reader_name = options.reader_name;
  order.through_adapter = options.through_adapter;
  order.adapter_config = options.adapter_config;
  order.time = std::chrono::seconds(options.timeout);
  try {
    order.program = ProgramPath(program_name);
    order.adapter =
        options.adapter_library.empty() ? FindAdapter(order.program) : options.adapter_library;
    encoding::Secret pin;
    ForbidCoreFiles();
    if (!options.pin_file.empty()) ReadPinFile(options.pin_file, &pin);
    const nlohmann::json report = Check(order, options.pin_file.empty() ? nullptr : &pin);
    pin.Wipe();
    return Print(options.json ? ToJson(report) : ToText(report), report.at("exitStatus"));
  } catch (const Failure& failure) {
    Complain(failure.what());
    const int status = static_cast<int>(failure.conclusion());
    return options.json ? Print(ToJson(FailureReport(order, failure)), status) : status;
  } catch (const nlohmann::json::exception&) {
    const Failure failure("the module disturbed the check: what was found cannot be read");
    Complain(failure.what());
    return options.json ? Print(ToJson(FailureReport(order, failure)), EXIT_FAILURE) : EXIT_FAILURE;
  }
}

int RunProgram(int argc, char** argv) {
  const std::variant<Options, int> parsed = Parse(argc, argv);
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  NoteInterruptions();
  return Run(std::get<Options>(parsed), argv[0]);
}

}  // namespace
}  // namespace kelvrin::modulecheck

int main(int argc, char** argv) {
  if (argc > 1 && argv[1] == kelvrin::modulecheck::kWorkerArgument) {
    kelvrin::modulecheck::LimitFiles();
    kelvrin::modulecheck::RunWorker(kelvrin::modulecheck::ToOrder({argv + 1, argv + argc}));
  }
  try {
    return kelvrin::modulecheck::RunProgram(argc, argv);
  } catch (const kelvrin::modulecheck::Interrupted& interrupted) {
    std::signal(interrupted.signal, SIG_DFL);
    return std::raise(interrupted.signal);
  } catch (const std::exception& failure) {
    kelvrin::modulecheck::Complain(failure.what());
    return EXIT_FAILURE;
  }
}
