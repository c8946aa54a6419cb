// The token's set-up, call by call, with the extension's own functions.
#pragma once

#include <string>

#include "modulecheck/listing.h"
#include "modulecheck/module.h"

namespace kelvrin::modulecheck {

struct Rehearsal {
  Publication publication;
  std::string failed_call;  // that ended the set-up, if one did
  CK_RV result = CKR_OK;    // its result
};

// Goes through what follows the bring-up, if that worked, in the extension's order and without
// finishing a search: the certificates, each one's public key and what that says of its use.
Rehearsal RehearseSetUp(const Module& module);

}  // namespace kelvrin::modulecheck
