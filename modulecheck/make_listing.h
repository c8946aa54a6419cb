// Everything that a module shows without and with a login, gathered for the report.
#pragma once

#include "modulecheck/listing.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

// What the module shows now. Throws nothing: what cannot be read is left out.
Listing MakeListing(const Module& module);

// The private keys that show now.
std::vector<PrivateKeyListing> ListPrivateKeys(const Module& module);

}  // namespace kelvrin::modulecheck
