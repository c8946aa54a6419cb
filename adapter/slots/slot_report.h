// What to tell somebody whose configuration fits no slot.
#pragma once

#include <p11-kit/pkcs11.h>

#include <span>
#include <string>

#include "adapter/config/config.h"

namespace kelvrin::adapter {

// One line that names the configuration's file, what a slot was looked for by, what these slots of
// the module behind have instead, and the cure. The module is asked for each slot and its token.
std::string NoSlotReport(const CK_FUNCTION_LIST& inner, const Config& config,
                         std::span<const CK_SLOT_ID> slots);

}  // namespace kelvrin::adapter
