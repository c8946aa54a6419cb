// The part of the report for people that shows what there is.
#pragma once

#include <string>

#include "modulecheck/report.h"

namespace kelvrin::modulecheck {

// Slots, card number, certificates, keys and what would be published, as lines.
std::string ListingText(const Report& report);

}  // namespace kelvrin::modulecheck
