// tokenhost: plays the system to a token extension.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/linux/host/tool/commands.h"
#include "platform/linux/host/tool/listing.h"

namespace tokenhost {
namespace {

void Print(const Failure& failure) {
  std::fflush(stdout);  // what the extension has printed comes before the end
  const host::Error& error = failure.error;
  std::string text = Printable(error.description);
  if (error.domain != host::kHostDomain) {
    text += " (" + error.domain + ", code " + std::to_string(error.code) + ")";
  }
  if (failure.logged) text += "; the extension's last error line: " + Printable(*failure.logged);
  std::fprintf(stderr, "tokenhost: %s\n", text.c_str());
}

int RunProgram(int argc, char** argv) {
  const std::variant<Options, int> parsed = Parse(argc, argv);
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  const auto& options = std::get<Options>(parsed);
  const StandardOutput output;
  LogView log(options.log, options.show_private);
  const std::optional<Failure> failure = Run(options, output, &log);
  if (!failure) return EXIT_SUCCESS;
  Print(*failure);
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace tokenhost

int main(int argc, char** argv) {
  // C strings are UTF-8 whatever the locale says; Foundation looks here.
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  std::signal(SIGPIPE, SIG_IGN);  // a closed output is an error like others
  try {
    return tokenhost::RunProgram(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tokenhost: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
