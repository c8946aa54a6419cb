#include "platform/linux/host/tool/commands.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "encoding/ecdsa_signature.h"
#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/tool/listing.h"
#include "platform/linux/host/tool/pin.h"

namespace tokenhost {
namespace {

using host::Bytes;
using host::Client;
using host::Error;
using host::HostError;
using host::InsertedCard;
using host::Item;
using host::Result;
using host::Secret;

Bytes ToBytes(const std::string& text) { return {text.begin(), text.end()}; }

void Warn(const std::string& text) {
  std::fprintf(stderr, "tokenhost: warning: %s\n", Printable(text).c_str());
}

// What an operation works with.
struct Prepared {
  Bytes input;
  host::PinSource pin;
};

Result<host::PinSource> PinSourceOf(const Options& options) {
  if (options.pin_file.empty()) return host::PinSource(AskForPin);
  Result<Secret> pin = ReadPinFile(options.pin_file);
  if (!pin) return pin.error();
  // Functions are copyable, secrets are not.
  auto kept = std::make_shared<Secret>(std::move(*pin));
  return host::PinSource([kept]() -> Result<Secret> { return std::move(*kept); });
}

// Finds the mistakes in what an operation works with before the extension is loaded.
Result<Prepared> Prepare(const Options& options) {
  Prepared prepared;
  if (!options.output.empty()) {
    if (auto error = CheckWritable(options.output)) return *error;
  }
  if (options.command != Command::kOperation) return prepared;
  if (host::FindAlgorithm(options.algorithm) == nullptr) {
    return HostError("there is no key algorithm '" + options.algorithm + "'");
  }
  Result<host::PinSource> pin = PinSourceOf(options);
  if (!pin) return pin.error();
  Result<Bytes> input = ReadInput(options.input);
  if (!input) return input.error();
  return Prepared{std::move(*input), std::move(*pin)};
}

// The bundle beside the program, or in the folder above.
Result<std::string> DefaultBundle() {
  std::error_code failure;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failure);
  const std::filesystem::path folder = program.parent_path();
  for (const std::filesystem::path& candidate : {folder, folder.parent_path()}) {
    const std::filesystem::path bundle = candidate / "KelvrinToken.appex";
    if (std::filesystem::exists(bundle, failure)) return bundle.string();
  }
  return HostError("there is no KelvrinToken.appex beside " + program.string() + ": use --bundle");
}

Result<host::HostedExtension> Load(const std::string& bundle) {
  const host::BundleCheck check = host::CheckBundle(bundle);
  const host::Finding* first_error = nullptr;
  for (const host::Finding& finding : check.findings) {
    if (finding.severity == host::Severity::kWarning) {
      Warn(finding.text);
    } else if (first_error == nullptr) {
      first_error = &finding;  // is what the command ends with
    } else {
      std::fprintf(stderr, "tokenhost: %s\n", Printable(finding.text).c_str());
    }
  }
  return host::HostedExtension::Load(check);
}

// Why the card cannot be used, in one sentence. Most extensions give no error, but log one.
Error SetUpError(Error error, const std::string& bundle, const InsertedCard& card,
                 const LogView& log) {
  const std::optional<std::string> logged = log.LastCause();
  if (logged && !card.driver_gave_error()) error.description = *logged;
  error.description = "the set-up of the card with " + bundle + " failed: " + error.description;
  return error;
}

std::optional<Error> List(const Options& options, const InsertedCard& card,
                          const StandardOutput& output) {
  const std::vector<Item> items = card.items();
  for (const std::string& object_id : DuplicateObjectIds(items)) {
    Warn("several items have the object ID " + object_id);
  }
  return output.Write(ToBytes(options.json ? ListJson(card.instance_id(), items)
                                           : ListText(card.instance_id(), items)));
}

void WarnOfSignature(const Options& options, const Bytes& signature) {
  if (host::FindAlgorithm(options.algorithm)->name.find("X962") != std::string::npos &&
      !kelvrin::encoding::IsDerSignature(signature)) {
    Warn("macOS would not accept this signature: it is no DER sequence of two integers");
  }
}

// What a command makes of a key.
Result<Bytes> UseKey(const Options& options, const Prepared& prepared, InsertedCard* card) {
  const Result<Item> key = card->FindKey(options.key);
  if (!key) return key.error();
  if (options.command == Command::kExport) return ExportKey(card->items(), *key);
  const Result<Client> client = card->OpenClient();
  if (!client) return client.error();
  if (options.command == Command::kSupports) return ToBytes(SupportTable(*client, *key));
  Result<Bytes> result =
      client->Perform(options.operation, *key, options.algorithm, prepared.input, prepared.pin);
  if (result && options.operation == host::Operation::kSign) WarnOfSignature(options, *result);
  return result;
}

// The command on a card whose set-up succeeded.
std::optional<Error> RunOnCard(const Options& options, const Prepared& prepared, InsertedCard* card,
                               const StandardOutput& output) {
  if (options.command == Command::kList) return List(options, *card, output);
  const Result<Bytes> result = UseKey(options, prepared, card);
  if (!result) return result.error();
  return options.output.empty() ? output.Write(*result) : WriteFile(options.output, *result);
}

}  // namespace

std::optional<Failure> Run(const Options& options, const StandardOutput& output, LogView* log) {
  const Result<Prepared> prepared = Prepare(options);
  if (!prepared) return Failure{prepared.error()};
  const Result<std::string> bundle =
      options.bundle.empty() ? DefaultBundle() : Result<std::string>(options.bundle);
  if (!bundle) return Failure{bundle.error()};
  const Result<host::HostedExtension> extension = Load(*bundle);
  if (!extension) return Failure{extension.error()};
  InsertedCard card = extension->InsertCard();
  if (const std::optional<Error>& error = card.error()) {
    log->ShowErrors();
    return Failure{SetUpError(*error, *bundle, card, *log)};
  }
  log->Forget();  // what the set-up logged is no cause of what fails later
  const std::optional<Error> error = RunOnCard(options, *prepared, &card, output);
  if (!error) return std::nullopt;
  if (error->domain == host::kHostDomain) return Failure{*error};
  return Failure{*error, log->LastCause()};
}

}  // namespace tokenhost
