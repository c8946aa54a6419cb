// Loading the PKCS#11 module behind the adapter.
#pragma once

#include <p11-kit/pkcs11.h>

#include "adapter/config/config.h"

namespace kelvrin::adapter {

// Loads the module that the configuration names and returns its function list as a list that may be
// called without looking: an entry that the module leaves null, or that its version does not have,
// answers CKR_FUNCTION_NOT_SUPPORTED. The module is never unloaded. Throws SetupError with
// CKR_FUNCTION_FAILED when it cannot be loaded or is not a PKCS#11 version 2 module.
// `own`: the adapter's function list; a module that hands out this one is the adapter itself, by
// whatever name, and is refused.
CK_FUNCTION_LIST LoadInnerModule(const Config& config, const CK_FUNCTION_LIST* own);

// The same completion for a list at hand, whose version is at least 2.0. The one entry of later
// versions, C_WaitForSlotEvent, always answers so.
CK_FUNCTION_LIST CompleteFunctionList(const CK_FUNCTION_LIST& list);

}  // namespace kelvrin::adapter
