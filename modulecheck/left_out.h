// The certificates that the adapter leaves out, and why.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace kelvrin::modulecheck {

// The certificates of the module's listing that are not in the one behind the adapter, as
// [{"label", "id", "reason"}]; none where one of them lists no certificates.
nlohmann::json LeftOut(const nlohmann::json& alone, const nlohmann::json& behind);

}  // namespace kelvrin::modulecheck
