// The one login of a worker.
#pragma once

#include <optional>
#include <string>

#include "modulecheck/judgement.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

// Why the PIN is not to be entered: it may be another card's, or it would take the card's last try.
// Empty when it may be. `serial` and `label` are of the token that the PIN is known to belong to;
// empty when none is known.
std::string WhyToWithhold(const Module& module, const std::string& serial,
                          const std::string& label);

// Whether the results of C_Login say that it is the PIN that is wrong.
bool IsWrongPin(CK_RV result);

// Whether two slots' serial numbers and labels are of one token, as far as they tell. Behind the
// adapter the serial number may stand in front of the label.
bool IsSameToken(const std::string& serial, const std::string& label,
                 const std::string& serial_behind, const std::string& label_behind);

}  // namespace kelvrin::modulecheck
