// What all sessions on one token share, from the set-up that chose it until it is gone.
#pragma once

#include <p11-kit/pkcs11.h>

#include <utility>

#include "adapter/objects/token_objects.h"
#include "adapter/operations/locked_pin.h"
#include "adapter/slots/token_identity.h"

namespace kelvrin::adapter {

struct TokenLife {
  TokenLife(const CK_FUNCTION_LIST& inner, const Rules& rules, CK_SLOT_ID slot,
            TokenIdentity its_identity)
      : identity(std::move(its_identity)), objects(inner, rules, slot) {}

  CK_SLOT_ID slot() const { return objects.slot(); }

  TokenIdentity identity;
  TokenObjects objects;
  LockedPin pin;           // of a login that the module has accepted
  bool has_login = false;  // there was one since the last logout
  bool is_over = false;    // the token is gone; see Adapter::EndLife
};

}  // namespace kelvrin::adapter
