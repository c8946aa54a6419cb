// Which token is in a slot.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace kelvrin::adapter {

// Serial number and label, as the module's fields have them.
struct TokenIdentity {
  std::string serial;
  std::string label;

  bool operator==(const TokenIdentity&) const = default;
};

inline TokenIdentity IdentityOf(const CK_TOKEN_INFO& info) {
  return {{std::begin(info.serialNumber), std::end(info.serialNumber)},
          {std::begin(info.label), std::end(info.label)}};
}

}  // namespace kelvrin::adapter
