#include "adapter/own_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace kelvrin::adapter {

std::filesystem::path OwnLibrary() {
  static const char anchor = 0;
  Dl_info info = {};
  if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) {
    throw std::runtime_error("the dynamic linker does not know the adapter");
  }
  return std::filesystem::absolute(info.dli_fname);
}

}  // namespace kelvrin::adapter
