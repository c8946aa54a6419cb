// The token's set-up, call by call, with the extension's own functions.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

// Goes through what follows the bring-up, if that worked, in the extension's order and without
// finishing a search: the certificates, each one's public key and what that says of its use. Met
// when a key would be published. `published` receives
//   {"items": [{"kind": "certificate" | "key", "name", "objectId", "capabilities"}],
//    "dropped": [TEXT], "ended": TEXT}
// where "dropped" says what the extension leaves out and why, and "ended", which is empty
// otherwise, why the whole set-up ends without a token.
Judgement GoThroughSetUp(const Module& module, nlohmann::json* published);

}  // namespace kelvrin::modulecheck
