// Between the log's entry points and whoever listens.
#pragma once

#include "platform/linux/log/decoder.h"
#include "platform/linux/log/line.h"

namespace oslog {

// Whether anyone keeps or shows lines. Costs one relaxed load: without a listener a line is not
// even decoded.
bool has_listeners();

// Hands a line to the recorders and the sink.
void deliver(const Line& line);

bool is_enabled(os_log_type_t type);

ObjectDescriber object_describer();

}  // namespace oslog
