// The report for people.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace kelvrin::modulecheck {

// The report of Check (see check.h) as text. Throws nlohmann::json::exception when it is none.
std::string ToText(const nlohmann::json& report);

}  // namespace kelvrin::modulecheck
