// modulecheck: says whether a PKCS#11 module fits the extension.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "modulecheck/check.h"
#include "modulecheck/dumps.h"
#include "modulecheck/interruption.h"
#include "modulecheck/options.h"
#include "modulecheck/pin_file.h"
#include "modulecheck/program_path.h"
#include "modulecheck/report_text.h"
#include "modulecheck/text.h"
#include "modulecheck/worker.h"

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
    Secret pin;
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
  std::signal(SIGPIPE, SIG_IGN);  // a closed output is an error like others
  NoteInterruptions();
  return Run(std::get<Options>(parsed), argv[0]);
}

}  // namespace
}  // namespace kelvrin::modulecheck

int main(int argc, char** argv) {
  if (argc > 1 && argv[1] == kelvrin::modulecheck::kWorkerArgument) {
    kelvrin::modulecheck::RunWorker(kelvrin::modulecheck::ToOrder({argv + 1, argv + argc}));
  }
  try {
    return kelvrin::modulecheck::RunProgram(argc, argv);
  } catch (const kelvrin::modulecheck::Interrupted& interrupted) {
    kelvrin::modulecheck::EndBy(interrupted.signal);
  } catch (const std::exception& failure) {
    kelvrin::modulecheck::Complain(failure.what());
    return EXIT_FAILURE;
  }
}
