#include "modulecheck/options.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <system_error>

#include "modulecheck/conclusion.h"
#include "modulecheck/files.h"
#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kDescription[] =
    "Says whether a PKCS#11 module does what the token extension expects, as it is or with the "
    "adapter in front of it, and which reader name to configure.\n\n"
    "Without --pin-file nobody logs in, and what takes a login is not tried. With it, keys of the "
    "card sign and decrypt a text that means nothing; nothing on the card is changed. One wrong "
    "PIN ends that, and a card that says that one try is left is not tried at all.";

constexpr char kExitStatuses[] =
    "Exit status: 0 the module works as it is, 3 it works with the adapter (both as far as it was "
    "tried), 1 it does not, 4 it could not be judged (no card, a wrong PIN, no login, a card that "
    "was pulled, no usable adapter), 2 wrong usage.";

std::string UsageError(const CLI::App* /*app*/, const CLI::Error& error) {
  return "modulecheck: " + Printable(error.what()) + "\nRun modulecheck --help for more.\n";
}

// Refuses an option whose value is an empty text.
const CLI::Validator& NotEmpty() {
  static const CLI::Validator validator(
      [](const std::string& text) { return std::string(text.empty() ? "its value is empty" : ""); },
      "");
  return validator;
}

void AddOptions(CLI::App* app, Options* options) {
  app->add_option("MODULE", options->module, "The PKCS#11 module's library")->required();
  app->add_option("--reader", options->reader_name,
                  "Reader name, as readerName in config.plist would have it")
      ->type_name("NAME");
  app->add_option("--pin-file", options->pin_file, "Log in with the PIN in this file's one line")
      ->check(NotEmpty())
      ->type_name("FILE");
  app->add_flag("--adapter", options->through_adapter,
                "List and judge the module behind the adapter, with a PIN key agreement too");
  app->add_option("--adapter-config", options->adapter_config,
                  "File with further lines for the adapter's configuration, such as "
                  "`reserved = ...`, `token-label = ...` or `any-reader = yes`")
      ->check(NotEmpty())
      ->type_name("FILE");
  app->add_flag("--json", options->json, "Print one JSON document");
  app->add_option("--timeout", options->timeout, "Seconds that everything may take")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str()
      ->type_name("SECONDS");
  app->add_option("--adapter-library", options->adapter_library,
                  "The adapter's library (default: the one beside this program)")
      ->check(NotEmpty())
      ->type_name("FILE")
      ->group("");
}

[[noreturn]] void RefusePinFile(const std::string& path, const std::string& why) {
  throw Failure("the PIN file " + path + " " + why, Conclusion::kWrongUsage);
}

}  // namespace

std::variant<Options, int> Parse(int argc, char** argv) {
  Options options;
  CLI::App app(kDescription, "modulecheck");
  app.footer(kExitStatuses);
  app.failure_message(UsageError);
  AddOptions(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(Conclusion::kWrongUsage);
  }
  return options;
}

void ReadPinFile(const std::string& path, encoding::Secret* pin) {
  if (Exists(path) && !IsPlainFile(path)) RefusePinFile(path, "is no plain file");
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const long count = file < 0 ? -1 : Fill(file, pin->room());
  if (count < 0) {
    RefusePinFile(path, "cannot be read: " + std::generic_category().message(errno));
  }
  close(file);
  const auto text = pin->room().first(static_cast<std::size_t>(count));
  const auto end = std::ranges::find(text, '\n');
  if (end != text.end() && end + 1 != text.end()) RefusePinFile(path, "has more than one line");
  if (end == text.end() && text.size() == encoding::Secret::kRoom) {
    RefusePinFile(path, "is too long for a PIN");
  }
  auto size = static_cast<std::size_t>(end - text.begin());
  if (size > 0 && text[size - 1] == '\r') --size;
  if (size == 0) RefusePinFile(path, "has no PIN in it");
  pin->Resize(size);
}

}  // namespace kelvrin::modulecheck
