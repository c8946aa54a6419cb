// What tokenhost does.
#pragma once

#include <optional>

#include "platform/linux/host/result.h"
#include "platform/linux/host/tool/files.h"
#include "platform/linux/host/tool/log_view.h"
#include "platform/linux/host/tool/options.h"

namespace tokenhost {

// Why a command failed.
struct Failure {
  host::Error error;
  // The extension's own last word on it, where it logged one.
  std::optional<std::string> logged = {};
};

// Runs the command; results go to the output, everything else to standard error. Returns what
// ended it, if anything.
std::optional<Failure> Run(const Options& options, const StandardOutput& output, LogView* log);

}  // namespace tokenhost
