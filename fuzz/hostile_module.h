// A PKCS#11 module that answers what the script says. It keeps to one rule, which the adapter
// cannot check: it writes into the rooms it was given, and into all of them, but not beyond.
#pragma once

#include <p11-kit/pkcs11.h>

namespace kelvrin::fuzz {

// What the adapter never calls answers CKR_FUNCTION_NOT_SUPPORTED.
CK_FUNCTION_LIST HostileModule();

}  // namespace kelvrin::fuzz
