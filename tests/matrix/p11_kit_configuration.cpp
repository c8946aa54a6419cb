#include "tests/matrix/p11_kit_configuration.h"

#include <cstdlib>

namespace matrix {

P11KitConfiguration::P11KitConfiguration(const std::filesystem::path& module) {
  std::filesystem::create_directories(folder_ / "pkcs11/modules");
  folder_.Write("pkcs11/pkcs11.conf", "user-config: only\n");
  folder_.Write("pkcs11/modules/only.module", "module: " + module.string() + "\ncritical: yes\n");
  setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
}

P11KitConfiguration::~P11KitConfiguration() { unsetenv("XDG_CONFIG_HOME"); }

std::filesystem::path P11KitConfiguration::Proxy() { return KELVRIN_P11_KIT_PROXY; }

}  // namespace matrix
