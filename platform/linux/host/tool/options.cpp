#include "platform/linux/host/tool/options.h"

#include <CLI/CLI.hpp>

#include "platform/linux/host/tool/listing.h"

namespace tokenhost {
namespace {

constexpr int kWrongUsage = 2;

void AddOperation(CLI::App* app, Options* options, host::Operation operation,
                  const char* description) {
  CLI::App* command = app->add_subcommand(OperationName(operation), description);
  command->add_option("--key", options->key, "Object ID in hex, or label")->required();
  command
      ->add_option("--algorithm", options->algorithm,
                   "Key algorithm constant, with or without kSecKeyAlgorithm")
      ->required();
  const bool exchange = operation == host::Operation::kKeyExchange;
  command->add_option("--in", options->input,
                      exchange ? "File with the other party's public key, 04 X Y (default: "
                                 "standard input)"
                               : "File to read (default: standard input)");
  command->add_option("--out", options->output, "File to write (default: standard output)");
  command->callback([options, operation] {
    options->command = Command::kOperation;
    options->operation = operation;
  });
}

void AddGlobalOptions(CLI::App* app, Options* options) {
  // The last one counts, so that a script's choice can be overruled.
  app->add_option("--bundle", options->bundle,
                  "Extension to load (default: KelvrinToken.appex beside this program)")
      ->take_last();
  app->add_option("--pin-file", options->pin_file, "File with the PIN (default: ask)")->take_last();
  static const std::map<std::string, Log> kLogs = {
      {"off", Log::kOff}, {"error", Log::kError}, {"default", Log::kDefault}};
  app->add_option_function<std::string>(
         "--log", [options](const std::string& name) { options->log = kLogs.at(name); },
         "Log lines to show on standard error (default: off)")
      ->check(CLI::IsMember({"off", "error", "default"}))
      ->take_last();
  app->add_flag("--show-private", options->show_private, "Show private arguments of log lines");
}

// One line of what is wrong, and where to look.
std::string UsageError(const CLI::App* app, const CLI::Error& error) {
  std::string text = error.what();
  const std::vector<std::string> unknown = app->remaining();
  if (app->get_subcommands().empty() && !unknown.empty() && !unknown[0].starts_with("-")) {
    text = "there is no command '" + unknown[0] + "'";
  }
  return "tokenhost: " + Printable(text) + "\nRun tokenhost --help for more.\n";
}

}  // namespace

std::variant<Options, int> Parse(int argc, char** argv) {
  Options options;
  CLI::App app("Plays the system to a token extension: inserts its card and uses its keys.",
               "tokenhost");
  app.require_subcommand(0, 1);  // that there is one is checked after the words that are none
  app.failure_message(UsageError);
  app.fallthrough();
  AddGlobalOptions(&app, &options);

  CLI::App* list = app.add_subcommand("list", "Show the card's keychain items");
  list->add_flag("--json", options.json, "As JSON");
  list->callback([&options] { options.command = Command::kList; });
  CLI::App* supports =
      app.add_subcommand("supports", "Show which algorithms a key serves, directly or resolved");
  supports->add_option("KEY", options.key, "Object ID in hex, or label")->required();
  supports->callback([&options] { options.command = Command::kSupports; });
  CLI::App* exporting =
      app.add_subcommand("export", "Write a key's certificate and public key as PEM");
  exporting->add_option("KEY", options.key, "Object ID in hex, or label")->required();
  exporting->add_option("--out", options.output, "File to write (default: standard output)");
  exporting->callback([&options] { options.command = Command::kExport; });
  AddOperation(&app, &options, host::Operation::kSign, "Sign data");
  AddOperation(&app, &options, host::Operation::kDecrypt, "Decrypt data");
  AddOperation(&app, &options, host::Operation::kKeyExchange, "Agree on a secret");
  for (CLI::App* command : app.get_subcommands({})) command->fallthrough();

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::RequiredError("A command");
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  }
  return options;
}

}  // namespace tokenhost
