// The test's side of the loadable scripted module.
#pragma once

#include <string>

#include "tests/module/scripted_module.h"

namespace scripted {

// Opens a copy of the loadable module, so that it can be scripted before the code under test loads
// it and asked for its calls after that code has closed it. Files that differ hold modules of
// their own. Ends the program when the file cannot be opened.
class ModuleControl {
 public:
  explicit ModuleControl(const std::string& path);
  ~ModuleControl();  // resets the module and closes the library
  ModuleControl(const ModuleControl&) = delete;
  ModuleControl& operator=(const ModuleControl&) = delete;

  ScriptedModule& module() { return *module_; }
  ScriptedModule* operator->() { return module_; }

 private:
  void* library_;
  ScriptedModule* module_;
};

// Says whether the process holds the library open at this moment.
bool IsLoaded(const std::string& path);

}  // namespace scripted
