#include "tests/matrix/two_worlds.h"

#include <cstdlib>
#include <utility>

namespace matrix {
namespace {

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

World::World(std::filesystem::path module, const kelvrin::SoftHsmCard& card)
    : module_(std::move(module)) {
  std::filesystem::copy(card.directory() / "tokens", folder_ / "tokens",
                        std::filesystem::copy_options::recursive);
  folder_.Write("softhsm2.conf", "directories.tokendir = " + (folder_ / "tokens").string() +
                                     "\nobjectstore.backend = file\nlog.level = ERROR\n"
                                     "slots.removable = false\n");
}

host::testing::Outcome RunProgram(const std::vector<std::string>& arguments,
                                  const std::vector<std::string>& environment) {
  const std::string preloaded =
      std::string(KELVRIN_SANITIZER_RUNTIME) + " " + KELVRIN_ORDINARY_USER;
  std::vector<std::string> all = {"/usr/bin/env", "LC_ALL=C", "LD_PRELOAD=" + preloaded,
                                  // What programs leave behind is no business of ours.
                                  "ASAN_OPTIONS=detect_leaks=0"};
  all.insert(all.end(), environment.begin(), environment.end());
  all.insert(all.end(), arguments.begin(), arguments.end());
  return host::testing::run_program(all);
}

host::testing::Outcome World::Run(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all;
  for (const std::string& argument : arguments) {
    all.push_back(Replace(Replace(argument, kModule, module_), kFolder, folder_.path()));
  }
  host::testing::Outcome outcome = RunProgram(all, {"SOFTHSM2_CONF=" + configuration().string()});
  for (std::string* text : {&outcome.output, &outcome.errors}) {
    *text = Replace(Replace(*text, module_, kModule), folder_.path(), kFolder);
  }
  return outcome;
}

ExportedPin::ExportedPin(const std::string& pin) {
  setenv("KELVRIN_PIN", pin.c_str(), 1);
  setenv("GNUTLS_PIN", pin.c_str(), 1);
}

ExportedPin::~ExportedPin() {
  unsetenv("KELVRIN_PIN");
  unsetenv("GNUTLS_PIN");
}

StandardAdapter::StandardAdapter(const std::string& configuration) {
  std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, path());
  folder_.Write("libkelvrin_adapter.conf", configuration + "profile = standard\n");
}

}  // namespace matrix
