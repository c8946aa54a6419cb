// Shows the unified log on standard error.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/host/tool/options.h"
#include "platform/linux/log/log_recorder.h"

namespace tokenhost {

// While it lives, the lines that --log asks for are shown as they are written; all are kept too.
class LogView {
 public:
  LogView(Log log, bool show_private);
  ~LogView();
  LogView(const LogView&) = delete;
  LogView& operator=(const LogView&) = delete;

  // Shows the error lines so far, unless they have been.
  void ShowErrors() const;

  // The message of the last error line so far that tells more than that something failed, or of
  // the last one; nothing without error lines. A message with private arguments that are not shown
  // ends with how to see them.
  std::optional<std::string> LastCause() const;

  // Forgets the lines so far.
  void Forget() { recorder_.clear(); }

 private:
  void Show(const oslog::Line& line) const;

  Log log_;
  oslog::ShowPrivate show_private_;
  oslog::Recorder recorder_;
};

}  // namespace tokenhost
