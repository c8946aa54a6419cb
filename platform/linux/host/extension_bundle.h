// Checks the bundle of a token extension before anything of it is loaded.
#pragma once

#include <string>
#include <vector>

namespace host {

enum class Severity {
  kWarning,  // works, though not as it should
  kError,    // cannot work
};

struct Finding {
  Severity severity;
  std::string text;  // one sentence that names the file or key
};

struct BundleCheck {
  std::string path;  // absolute
  std::vector<Finding> findings;
  // As Info.plist has them; empty where they are missing.
  std::string executable;  // absolute path
  std::string driver_class;
};

// Reads a bundle's Info.plist, modules and config.plist. `path`: X.appex.
BundleCheck CheckBundle(const std::string& path);

}  // namespace host
