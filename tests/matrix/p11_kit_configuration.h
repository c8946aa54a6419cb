// A p11-kit that knows one module, whatever the machine and its user have configured.
#pragma once

#include <filesystem>

#include "tests/temporary_folder.h"

namespace matrix {

// For this process, in which nobody is root (ordinary_user.c), as long as it lives. One at a time.
class P11KitConfiguration {
 public:
  // `module`: absolute path of a PKCS#11 module.
  explicit P11KitConfiguration(const std::filesystem::path& module);
  ~P11KitConfiguration();
  P11KitConfiguration(const P11KitConfiguration&) = delete;
  P11KitConfiguration& operator=(const P11KitConfiguration&) = delete;

  // The module in front of all others.
  static std::filesystem::path Proxy();

 private:
  kelvrin::TemporaryFolder folder_;
};

}  // namespace matrix
