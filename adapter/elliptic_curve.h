// What the adapter has to know of elliptic curves: sizes and encodings, no arithmetic.
#ifndef KELVRIN_ADAPTER_ELLIPTIC_CURVE_H_
#define KELVRIN_ADAPTER_ELLIPTIC_CURVE_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace kelvrin::adapter {

using Bytes = std::vector<CK_BYTE>;
using ByteView = std::span<const CK_BYTE>;

// A DER element: the tag, the length and the content, which has less than 64 KiB.
Bytes WrapDer(CK_BYTE tag, ByteView content);

// Bytes of a coordinate (and of r and s) on the curve that CKA_EC_PARAMS names by an object
// identifier: the NIST prime curves, secp256k1 and the Brainpool curves; 0 for any other value.
std::size_t CurveSize(ByteView parameters);

// r and s of `half` bytes each as the DER SEQUENCE of two INTEGERs, each as short as DER asks.
// `raw` has an even number of bytes, two at least.
Bytes EcdsaSignatureToDer(ByteView raw);

// The longest result of EcdsaSignatureToDer for a signature of `raw_size` bytes.
std::size_t MaxDerSize(std::size_t raw_size);

// Whether the bytes are exactly one DER SEQUENCE of two INTEGERs.
bool IsDerSignature(ByteView bytes);

// A public point as a caller hands it over, in both forms that modules take.
struct PublicPoint {
  Bytes raw;             // 04 X Y, or the compressed form
  Bytes der;             // the same in an OCTET STRING
  std::size_t size = 0;  // bytes of a coordinate
};

// Reads a point that comes raw or in a DER OCTET STRING; nothing when it is neither, or not of a
// size that a prime curve has.
std::optional<PublicPoint> ReadPublicPoint(ByteView bytes);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ELLIPTIC_CURVE_H_
