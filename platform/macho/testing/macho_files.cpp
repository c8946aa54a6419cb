#include "platform/macho/testing/macho_files.h"

namespace macho::testing {

std::string WhyNot(const std::string& path) {
  try {
    Load(path);
    return "";
  } catch (const LoadError& error) {
    return error.what();
  }
}

}  // namespace macho::testing
