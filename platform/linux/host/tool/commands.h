// What tokenhost does.
#pragma once

#include <optional>

#include "platform/linux/host/error.h"
#include "platform/linux/host/tool/files.h"
#include "platform/linux/host/tool/log_view.h"
#include "platform/linux/host/tool/options.h"

namespace tokenhost {

// Runs the command; results go to the output, everything else to standard error. Returns the error
// that ended it, if any.
std::optional<host::Error> run(const Options& options, const StandardOutput& output,
                               const LogView& log);

}  // namespace tokenhost
