#include "app/model/diagnosis.h"

#include <utility>

namespace kelvrin::app {
namespace {

constexpr char kAdapter[] = "/Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib";
// What the extension itself and the system's token daemons have said.
constexpr char kLogPredicate[] =
    "processImagePath CONTAINS \"KelvrinToken.appex\" OR subsystem == \"com.apple.CryptoTokenKit\"";

// A command as one would type it.
std::string Typed(const Command& command) {
  std::string text = command.program;
  for (const std::string& argument : command.arguments) {
    const bool is_one_word = argument.find(' ') == std::string::npos;
    text += is_one_word ? " " + argument : " '" + argument + "'";
  }
  return text;
}

}  // namespace

Diagnosis::Diagnosis(System* system, std::function<void()> changed)
    : system_(system), changed_(std::move(changed)) {
  const Installation& here = system_->installation();
  // Modulecheck loads the adapter as the extension does, and takes it for its own too.
  const std::string adapter = here.extension + kAdapter;
  using Kind = Section::Kind;
  commands_ = {
      {Kind::kSignature, {"/usr/bin/codesign", {"-d", "--verbose=2", here.application}}},
      {Kind::kSignature,
       {"/usr/bin/codesign", {"--verify", "--deep", "--strict", here.application}, 30}},
      {Kind::kRegistration, ListExtensions()},
      {Kind::kReaders, {"/usr/sbin/system_profiler", {"SPSmartCardsDataType"}, 30}},
      {Kind::kTokens, {"/usr/bin/security", {"list-smartcards"}}},
      {Kind::kModule,
       {here.application + "/Contents/MacOS/modulecheck",
        {"--json", "--timeout", "60", "--adapter-library", adapter, adapter},
        70}},
      {Kind::kLog,
       {"/usr/bin/log",
        {"show", "--last", "10m", "--info", "--style", "compact", "--predicate", kLogPredicate},
        60}},
  };
  RunNext();
}

// Runs the next program; its answer runs the one after it.
void Diagnosis::RunNext() {
  const Step& step = commands_[done()];
  task_ = system_->Run(step.command, [this](const ProcessResult& result) {
    const auto& [kind, command] = commands_[done()];
    sections_.push_back(
        {kind, Typed(command), result.output + result.errors, result.end, result.status});
    if (!is_complete()) RunNext();
    changed_();
  });
}

}  // namespace kelvrin::app
