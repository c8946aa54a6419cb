#include "encoding/elliptic_curve.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "encoding/der.h"

namespace kelvrin::encoding {
namespace {

// Object identifiers without their last arc, which tells the curve.
constexpr std::array<unsigned char, 7> kPrimeCurves = {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01};
constexpr std::array<unsigned char, 4> kCerticomCurves = {0x2b, 0x81, 0x04, 0x00};
constexpr std::array<unsigned char, 8> kBrainpoolCurves = {0x2b, 0x24, 0x03, 0x03,
                                                           0x02, 0x08, 0x01, 0x01};

struct Curve {
  unsigned char arc;
  std::size_t size;
};

std::size_t SizeOfArc(std::initializer_list<Curve> curves, unsigned char arc) {
  for (const Curve& curve : curves) {
    if (curve.arc == arc) return curve.size;
  }
  return 0;
}

bool IsPrimeCurveSize(std::size_t size) {
  constexpr std::array<std::size_t, 8> kSizes = {20, 24, 28, 32, 40, 48, 64, 66};
  return std::find(kSizes.begin(), kSizes.end(), size) != kSizes.end();
}

// Bytes of a coordinate of a raw point, or 0 when it is none.
std::size_t RawPointSize(ByteView point) {
  if (point.empty()) return 0;
  const std::size_t rest = point.size() - 1;
  const bool uncompressed = point.front() == 4 && rest % 2 == 0;
  const bool compressed = point.front() == 2 || point.front() == 3;
  const std::size_t size = uncompressed ? rest / 2 : compressed ? rest : 0;
  return IsPrimeCurveSize(size) ? size : 0;
}

}  // namespace

std::size_t CurveSize(ByteView parameters) {
  const auto identifier = ReadOnlyElement(kDerObjectIdentifier, parameters);
  if (!identifier || identifier->content.size() < 2) return 0;
  const ByteView family = identifier->content.first(identifier->content.size() - 1);
  const unsigned char arc = identifier->content.back();
  if (std::ranges::equal(family, kPrimeCurves)) return SizeOfArc({{1, 24}, {7, 32}}, arc);
  if (std::ranges::equal(family, kCerticomCurves)) {
    return SizeOfArc({{0x0a, 32}, {0x21, 28}, {0x22, 48}, {0x23, 66}}, arc);
  }
  if (!std::ranges::equal(family, kBrainpoolCurves) || arc == 0) return 0;
  // Each size has a twisted curve beside it: 1 and 2, 3 and 4, and so on.
  constexpr std::array<std::size_t, 7> kBrainpoolSizes = {20, 24, 28, 32, 40, 48, 64};
  const std::size_t pair = (arc - 1U) / 2;
  return pair < kBrainpoolSizes.size() ? kBrainpoolSizes[pair] : 0;
}

std::optional<PublicPoint> ReadPublicPoint(ByteView bytes) {
  if (const std::size_t size = RawPointSize(bytes); size != 0) {
    return PublicPoint{Bytes(bytes.begin(), bytes.end()), WrapDer(kDerOctetString, bytes), size};
  }
  const auto octets = ReadOnlyElement(kDerOctetString, bytes);
  if (!octets) return std::nullopt;
  const std::size_t size = RawPointSize(octets->content);
  if (size == 0) return std::nullopt;
  return PublicPoint{Bytes(octets->content.begin(), octets->content.end()),
                     Bytes(bytes.begin(), bytes.end()), size};
}

}  // namespace kelvrin::encoding
