// Shows the unified log on standard error.
#pragma once

#include <vector>

#include "platform/linux/host/tool/options.h"
#include "platform/linux/log/log_recorder.h"

namespace tokenhost {

// While it lives, the lines that --log asks for are shown as they are written; the error lines are
// kept too.
class LogView {
 public:
  LogView(Log log, bool show_private);
  ~LogView();
  LogView(const LogView&) = delete;
  LogView& operator=(const LogView&) = delete;

  // Shows the error lines so far, unless they have been.
  void show_errors() const;

 private:
  void show(const oslog::Line& line) const;

  Log log_;
  oslog::ShowPrivate show_private_;
  oslog::Recorder recorder_;
};

}  // namespace tokenhost
