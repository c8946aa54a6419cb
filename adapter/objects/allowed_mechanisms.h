// What a public key's mechanisms are to the extension.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <vector>

#include "adapter/config/rules.h"

namespace kelvrin::adapter {

// As many as the extension has room for.
inline constexpr std::size_t kMaxAllowedMechanisms = 20;

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

bool Contains(const Mechanisms& list, CK_MECHANISM_TYPE mechanism);

// What a key of this type can be used for through the adapter, in a slot that offers `offered`.
Mechanisms UsableMechanisms(const Rules& rules, CK_KEY_TYPE key_type, const Mechanisms& offered);

// A list that the module gives for a key (1 to 20 entries), with what the adapter serves by them
// behind it and without what it cannot serve by them; never more than 20 entries.
Mechanisms CompleteMechanisms(const Rules& rules, const Mechanisms& own);

}  // namespace kelvrin::adapter
