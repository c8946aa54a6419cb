#include "tests/module/module_control.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

namespace scripted {

ModuleControl::ModuleControl(const std::string& path)
    : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  void* control = library_ == nullptr ? nullptr : dlsym(library_, "scripted_module_control");
  if (control == nullptr) {
    fprintf(stderr, "scripted module: %s\n", dlerror());
    abort();
  }
  module_ = reinterpret_cast<ScriptedModule* (*)()>(control)();
  module_->Reset();
}

ModuleControl::~ModuleControl() {
  module_->Reset();
  dlclose(library_);
}

bool IsLoaded(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return false;
  dlclose(library);
  return true;
}

}  // namespace scripted
