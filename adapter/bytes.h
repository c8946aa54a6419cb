// The names of encoding/ as the adapter uses them.
#pragma once

#include "encoding/bytes.h"
#include "encoding/der.h"
#include "encoding/ecdsa_signature.h"
#include "encoding/elliptic_curve.h"
#include "encoding/wipe.h"

namespace kelvrin::adapter {

using namespace encoding;  // NOLINT(google-build-using-namespace): one room's words for another

inline void Wipe(std::span<unsigned char> bytes) { encoding::Wipe(bytes.data(), bytes.size()); }

}  // namespace kelvrin::adapter
