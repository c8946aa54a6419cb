// Shows the unified log on standard error.
#pragma once

#include <optional>
#include <string>

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

  // The message of the last error line so far that tells more than that the set-up failed, or of
  // the last one; nothing without error lines. A message with private arguments that are not shown
  // ends with how to see them.
  std::optional<std::string> last_cause() const;

 private:
  void show(const oslog::Line& line) const;

  Log log_;
  oslog::ShowPrivate show_private_;
  oslog::Recorder recorder_;
};

}  // namespace tokenhost
