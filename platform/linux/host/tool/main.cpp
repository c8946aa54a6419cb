// tokenhost: plays the system to a token extension.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/linux/host/tool/commands.h"
#include "platform/linux/host/tool/listing.h"

namespace tokenhost {
namespace {

void print(const host::Error& error) {
  std::fflush(stdout);  // what the extension has printed comes before the end
  const std::string text = printable(error.description);
  if (error.domain == host::kHostDomain) {
    std::fprintf(stderr, "tokenhost: %s\n", text.c_str());
  } else {
    std::fprintf(stderr, "tokenhost: %s (%s, code %ld)\n", text.c_str(), error.domain.c_str(),
                 error.code);
  }
}

int run_program(int argc, char** argv) {
  const std::variant<Options, int> parsed = parse(argc, argv);
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  const auto& options = std::get<Options>(parsed);
  const StandardOutput output;
  const LogView log(options.log, options.show_private);
  const std::optional<host::Error> error = run(options, output, log);
  if (!error) return EXIT_SUCCESS;
  print(*error);
  return EXIT_FAILURE;
}

}  // namespace
}  // namespace tokenhost

int main(int argc, char** argv) {
  // C strings are UTF-8 whatever the locale says; Foundation looks here.
  setenv("GNUSTEP_STRING_ENCODING", "NSUTF8StringEncoding", 0);
  std::signal(SIGPIPE, SIG_IGN);  // a closed output is an error like others
  try {
    return tokenhost::run_program(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tokenhost: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
