// modulecheck: says whether a PKCS#11 module fits the extension.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "modulecheck/check.h"
#include "modulecheck/interruption.h"
#include "modulecheck/options.h"
#include "modulecheck/pin_file.h"
#include "modulecheck/program_path.h"
#include "modulecheck/text.h"
#include "modulecheck/worker.h"

namespace kelvrin::modulecheck {
namespace {

int Run(const Options& options, const std::string& program_name) {
  CheckOrder order;
  order.program = ProgramPath(program_name);
  order.module = options.module;
  order.adapter =
      options.adapter_library.empty() ? FindAdapter(order.program) : options.adapter_library;
  order.reader_name = options.reader_name;
  order.through_adapter = options.through_adapter;
  order.adapter_config = options.adapter_config;
  order.patience = std::chrono::seconds(options.timeout);

  Secret pin;
  ForbidCoreFiles();
  if (!options.pin_file.empty()) ReadPinFile(options.pin_file, &pin);
  const Report report = Check(order, options.pin_file.empty() ? nullptr : &pin);
  pin.Wipe();
  const std::string text = options.json ? ToJson(report) : ToText(report);
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    std::fputs("modulecheck: standard output cannot be written\n", stderr);
    return EXIT_FAILURE;
  }
  return static_cast<int>(report.conclusion);
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
    std::fprintf(stderr, "modulecheck: %s\n",
                 kelvrin::modulecheck::Printable(failure.what()).c_str());
    return EXIT_FAILURE;
  }
}
