#include "adapter/boundary/own_library.h"

#include <dlfcn.h>

#include <stdexcept>

#include "adapter/config/file_path.h"

namespace kelvrin::adapter {
namespace {

// By the dynamic linker's own name; null when it knows none.
const char* NameAtLinker() {
  static const char anchor = 0;
  Dl_info info = {};
  return dladdr(&anchor, &info) != 0 ? info.dli_fname : nullptr;
}

}  // namespace

std::string OwnLibrary() {
  const char* const name = NameAtLinker();
  if (name == nullptr) throw std::runtime_error("the dynamic linker does not know the adapter");
  return AbsolutePath(name);
}

void StayMapped() {
  const char* const name = NameAtLinker();
  if (name == nullptr) return;
  // The handle is never closed: some linkers destroy static variables at the last close although
  // they keep the library.
  static_cast<void>(dlopen(name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE));
}

}  // namespace kelvrin::adapter
