#include "platform/linux/host/tool/commands.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "platform/linux/host/ecdsa_signature.h"
#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/tool/listing.h"
#include "platform/linux/host/tool/pin.h"

namespace tokenhost {
namespace {

using host::Bytes;
using host::Client;
using host::Error;
using host::host_error;
using host::InsertedCard;
using host::Item;
using host::Result;
using host::Secret;

Bytes to_bytes(const std::string& text) { return {text.begin(), text.end()}; }

void warn(const std::string& text) {
  std::fprintf(stderr, "tokenhost: warning: %s\n", printable(text).c_str());
}

// What an operation works with. Its mistakes are found before the extension is loaded.
struct Prepared {
  host::Request request;
  host::PinSource pin;
};

Result<Bytes> from_hex(const std::string& hex) {
  Bytes bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    uint8_t value = 0;
    const char* begin = hex.data() + i;
    const char* end = begin + std::min<size_t>(2, hex.size() - i);
    const auto [read_to, failure] = std::from_chars(begin, end, value, 16);
    if (failure != std::errc() || read_to != begin + 2) {
      return host_error("'" + hex + "' is no hex");
    }
    bytes.push_back(value);
  }
  return bytes;
}

Result<host::PinSource> pin_source(const Options& options) {
  if (options.pin_file.empty()) return host::PinSource(ask_for_pin);
  Result<Secret> pin = read_pin_file(options.pin_file);
  if (!pin) return pin.error();
  // Functions are copyable, secrets are not.
  auto kept = std::make_shared<Secret>(std::move(*pin));
  return host::PinSource([kept]() -> Result<Secret> { return std::move(*kept); });
}

Result<Prepared> prepare(const Options& options) {
  if (host::find_algorithm(options.algorithm) == nullptr) {
    return host_error("there is no key algorithm '" + options.algorithm + "'");
  }
  if (!options.output.empty()) {
    if (auto error = check_writable(options.output)) return *error;
  }
  Result<host::PinSource> pin = pin_source(options);
  if (!pin) return pin.error();
  const Result<Bytes> shared_info = from_hex(options.shared_info);
  if (!shared_info) return shared_info.error();
  Result<Bytes> input = read_input(options.input);
  if (!input) return input.error();
  return Prepared{
      {.data = std::move(*input), .requested_size = options.size, .shared_info = *shared_info},
      std::move(*pin)};
}

// The bundle beside the program, or in the folder above.
Result<std::string> default_bundle() {
  std::error_code failure;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", failure);
  const std::filesystem::path folder = program.parent_path();
  for (const std::filesystem::path& candidate : {folder, folder.parent_path()}) {
    const std::filesystem::path bundle = candidate / "KelvrinToken.appex";
    if (std::filesystem::exists(bundle, failure)) return bundle.string();
  }
  return host_error("there is no KelvrinToken.appex beside " + program.string() + ": use --bundle");
}

Result<host::HostedExtension> load(const std::string& bundle) {
  const host::BundleCheck check = host::check_bundle(bundle);
  const host::Finding* first_error = nullptr;
  for (const host::Finding& finding : check.findings) {
    if (finding.severity == host::Severity::kWarning) {
      warn(finding.text);
    } else if (first_error == nullptr) {
      first_error = &finding;  // is what the command ends with
    } else {
      std::fprintf(stderr, "tokenhost: %s\n", printable(finding.text).c_str());
    }
  }
  return host::HostedExtension::load(check);
}

// Why the card cannot be used, in one sentence. Most extensions give no error, but log one.
Error set_up_error(Error error, const std::string& bundle, const InsertedCard& card,
                   const LogView& log) {
  const std::optional<std::string> logged = log.last_cause();
  if (logged && !card.driver_gave_error()) error.description = *logged;
  error.description = "the set-up of the card with " + bundle + " failed: " + error.description;
  return error;
}

void warn_of_duplicates(const std::vector<Item>& items) {
  for (const std::string& object_id : duplicate_object_ids(items)) {
    warn("several items have the object ID " + object_id);
  }
}

std::optional<Error> list(const Options& options, const InsertedCard& card,
                          const StandardOutput& output) {
  const std::vector<Item> items = card.items();
  warn_of_duplicates(items);
  return output.write(to_bytes(options.json ? list_json(card.instance_id(), items)
                                            : list_text(card.instance_id(), items)));
}

std::optional<Error> deliver(const Options& options, const Bytes& result,
                             const StandardOutput& output) {
  const std::string& value = host::find_algorithm(options.algorithm)->value;
  if (options.operation == host::Operation::kSign && value.find("X962") != std::string::npos &&
      !host::is_der_ecdsa_signature(result)) {
    warn("macOS would not accept this signature: it is no DER sequence of two integers");
  }
  return options.output.empty() ? output.write(result) : write_file(options.output, result);
}

// What the commands that use a key do.
std::optional<Error> use_key(const Options& options, const Prepared& prepared, InsertedCard* card,
                             const StandardOutput& output) {
  const Result<Item> key = card->find_key(options.key);
  if (!key) return key.error();
  const Result<Client> client = card->open_client();
  if (!client) return client.error();
  if (options.command == Command::kSupports) {
    return output.write(to_bytes(support_table(*client, *key)));
  }
  const Result<Bytes> result =
      client->perform(options.operation, *key, options.algorithm, prepared.request, prepared.pin);
  if (!result) return result.error();
  return deliver(options, *result, output);
}

}  // namespace

std::optional<Error> run(const Options& options, const StandardOutput& output, const LogView& log) {
  Prepared prepared;
  if (options.command == Command::kOperation) {
    Result<Prepared> result = prepare(options);
    if (!result) return result.error();
    prepared = std::move(*result);
  }
  const Result<std::string> bundle =
      options.bundle.empty() ? default_bundle() : Result<std::string>(options.bundle);
  if (!bundle) return bundle.error();
  const Result<host::HostedExtension> extension = load(*bundle);
  if (!extension) return extension.error();
  InsertedCard card = extension->insert_card();
  if (const std::optional<Error>& error = card.error()) {
    log.show_errors();
    return set_up_error(*error, *bundle, card, log);
  }
  if (options.command == Command::kList) return list(options, card, output);
  return use_key(options, prepared, &card, output);
}

}  // namespace tokenhost
