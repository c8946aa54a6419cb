// The elliptic curves whose keys can be told and checked.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

struct Curve {
  std::string_view name;
  std::size_t size;                    // bytes of a coordinate
  std::span<const CK_BYTE> ec_params;  // its CKA_EC_PARAMS
  // The point that generates the group, 04 X Y. Agreeing on a secret with it gives the X of the
  // key's own public point: nothing that is not public, and easily checked.
  std::span<const CK_BYTE> generator;
};

// Null when the curve is another one.
const Curve* FindCurve(const Bytes& ec_params);

// The X of a CKA_EC_POINT, raw or in an OCTET STRING; nothing when it is no uncompressed point.
std::optional<Bytes> Abscissa(const Curve& curve, std::span<const CK_BYTE> ec_point);

}  // namespace kelvrin::modulecheck
