#include "tests/card/softhsm_card.h"

#include <cstdlib>
#include <stdexcept>

#include "platform/linux/host/testing/program.h"
#include "platform/linux/host/testing/text_files.h"

namespace kelvrin {

namespace fs = std::filesystem;

SoftHsmCard::SoftHsmCard(const CardOptions& options) : options_(options) {
  Add(options);
  setenv("SOFTHSM2_CONF", configuration().c_str(), 1);
}

SoftHsmCard::~SoftHsmCard() { unsetenv("SOFTHSM2_CONF"); }

void SoftHsmCard::Add(const CardOptions& options) {
  const fs::path pin_file = folder_.Write("maker.pin", options.pin + "\n");
  std::vector<std::string> arguments = {KELVRIN_MAKE_CARD, directory(), "--name",
                                        options.name,      "--label",   options.label,
                                        "--pin-file",      pin_file};
  if (options.empty) arguments.emplace_back("--empty");
  if (options.lone_certificate) arguments.emplace_back("--lone-cert");
  if (options.extra_certificates != 0) {
    arguments.insert(arguments.end(),
                     {"--extra-certs", std::to_string(options.extra_certificates)});
  }
  const host::testing::Outcome outcome = host::testing::RunProgram(arguments);
  fs::remove(pin_file);
  if (outcome.status != 0) throw std::runtime_error("make-card failed: " + outcome.errors);
}

std::vector<std::uint8_t> SoftHsmCard::Read(const std::string& file) const {
  if (!fs::exists(File(file))) throw std::runtime_error("there is no " + File(file).string());
  const std::string contents = host::testing::ReadText(File(file));
  return {contents.begin(), contents.end()};
}

fs::path SoftHsmCard::Module() {
  for (const char* path :
       {"/usr/lib/softhsm/libsofthsm2.so", "/usr/lib/x86_64-linux-gnu/softhsm/libsofthsm2.so",
        "/usr/lib/aarch64-linux-gnu/softhsm/libsofthsm2.so",
        "/usr/local/lib/softhsm/libsofthsm2.so"}) {
    if (fs::exists(path)) return path;
  }
  throw std::runtime_error("SoftHSM is not installed (package softhsm2)");
}

}  // namespace kelvrin
