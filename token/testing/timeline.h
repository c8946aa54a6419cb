// What happened in which order, across the module and the log.
#pragma once

#include <string>
#include <vector>

#include "tests/module/scripted_module.h"

namespace token_testing {

// While it lives, notes each call to a module and each log line as one event, in their order:
// "C_Finalize(NULL)", "default: (dealloc) C_Finalize aufgerufen.". It takes the module's observer
// and the log's sink for itself: one timeline at a time. For one thread.
class Timeline {
 public:
  explicit Timeline(scripted::ScriptedModule& module);
  ~Timeline();
  Timeline(const Timeline&) = delete;
  Timeline& operator=(const Timeline&) = delete;

  void Note(const std::string& event) { events_.push_back(event); }
  // The events so far, which are then forgotten.
  std::vector<std::string> Take();

 private:
  scripted::ScriptedModule& module_;
  std::vector<std::string> events_;
};

}  // namespace token_testing
