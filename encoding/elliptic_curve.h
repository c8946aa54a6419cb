// What has to be known of elliptic curves: sizes and the encodings of points, no arithmetic.
#pragma once

#include <cstddef>
#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

// Bytes of a coordinate (and of r and s) on the curve that CKA_EC_PARAMS names by an object
// identifier: the NIST prime curves, secp256k1 and the Brainpool curves; 0 for any other value.
std::size_t CurveSize(ByteView parameters);

// A public point as a caller hands it over, in both forms that modules take.
struct PublicPoint {
  Bytes raw;             // 04 X Y, or the compressed form
  Bytes der;             // the same in an OCTET STRING
  std::size_t size = 0;  // bytes of a coordinate
};

// Reads a point that comes raw or in a DER OCTET STRING; nothing when it is neither, or not of a
// size that a prime curve has.
std::optional<PublicPoint> ReadPublicPoint(ByteView bytes);

}  // namespace kelvrin::encoding
