#include "adapter/elliptic_curve.h"

#include <algorithm>
#include <array>
#include <initializer_list>

namespace kelvrin::adapter {
namespace {

constexpr CK_BYTE kInteger = 0x02;
constexpr CK_BYTE kOctetString = 0x04;
constexpr CK_BYTE kObjectIdentifier = 0x06;
constexpr CK_BYTE kSequence = 0x30;

// Object identifiers without their last arc, which tells the curve.
constexpr std::array<CK_BYTE, 7> kPrimeCurves = {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01};
constexpr std::array<CK_BYTE, 4> kCerticomCurves = {0x2b, 0x81, 0x04, 0x00};
constexpr std::array<CK_BYTE, 8> kBrainpoolCurves = {0x2b, 0x24, 0x03, 0x03,
                                                     0x02, 0x08, 0x01, 0x01};

struct Curve {
  CK_BYTE arc;
  std::size_t size;
};
using Curves = std::initializer_list<Curve>;

std::size_t SizeOfArc(const Curves& curves, CK_BYTE arc) {
  for (const Curve& curve : curves) {
    if (curve.arc == arc) return curve.size;
  }
  return 0;
}

bool IsPrimeCurveSize(std::size_t size) {
  constexpr std::array<std::size_t, 8> kSizes = {20, 24, 28, 32, 40, 48, 64, 66};
  return std::find(kSizes.begin(), kSizes.end(), size) != kSizes.end();
}

void AppendLength(std::size_t length, Bytes* out) {
  if (length >= 0x100) {
    out->insert(out->end(), {0x82, static_cast<CK_BYTE>(length >> 8)});
  } else if (length >= 0x80) {
    out->push_back(0x81);
  }
  out->push_back(static_cast<CK_BYTE>(length & 0xff));
}

// A number without leading zeros; never empty.
ByteView Significant(ByteView number) {
  while (number.size() > 1 && number.front() == 0) number = number.subspan(1);
  return number;
}

// Bytes of an INTEGER's content: one that begins with a set bit needs a zero in front.
std::size_t IntegerSize(ByteView significant) {
  return significant.size() + ((significant.front() & 0x80) != 0 ? 1 : 0);
}

void AppendInteger(ByteView significant, Bytes* out) {
  const std::size_t size = IntegerSize(significant);
  out->push_back(kInteger);
  AppendLength(size, out);
  if (size != significant.size()) out->push_back(0);
  out->insert(out->end(), significant.begin(), significant.end());
}

// Bytes of an element's tag and length.
std::size_t HeaderSize(std::size_t length) { return length < 0x80 ? 2 : length < 0x100 ? 3 : 4; }

// Takes one element with this tag off the front of `bytes`; its content, or nothing.
std::optional<ByteView> Take(CK_BYTE tag, ByteView* bytes) {
  if (bytes->size() < 2 || bytes->front() != tag) return std::nullopt;
  std::size_t length = (*bytes)[1];
  std::size_t header = 2;
  if (length >= 0x80) {
    const std::size_t digits = length & 0x7f;
    if (digits == 0 || digits > 2 || bytes->size() < 2 + digits) return std::nullopt;
    length = 0;
    for (std::size_t i = 0; i < digits; ++i) length = length << 8 | (*bytes)[2 + i];
    header += digits;
  }
  if (bytes->size() - header < length) return std::nullopt;
  const ByteView content = bytes->subspan(header, length);
  *bytes = bytes->subspan(header + length);
  return content;
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

Bytes WrapDer(CK_BYTE tag, ByteView content) {
  Bytes out = {tag};
  AppendLength(content.size(), &out);
  out.insert(out.end(), content.begin(), content.end());
  return out;
}

std::size_t CurveSize(ByteView parameters) {
  const std::optional<ByteView> oid = Take(kObjectIdentifier, &parameters);
  if (!oid || oid->size() < 2 || !parameters.empty()) return 0;
  const ByteView family = oid->first(oid->size() - 1);
  const CK_BYTE arc = oid->back();
  if (std::ranges::equal(family, kPrimeCurves)) return SizeOfArc({{1, 24}, {7, 32}}, arc);
  if (std::ranges::equal(family, kCerticomCurves)) {
    return SizeOfArc({{0x0a, 32}, {0x21, 28}, {0x22, 48}, {0x23, 66}}, arc);
  }
  if (std::ranges::equal(family, kBrainpoolCurves)) {
    // Each size has a twisted curve beside it.
    return SizeOfArc({{1, 20},
                      {2, 20},
                      {3, 24},
                      {4, 24},
                      {5, 28},
                      {6, 28},
                      {7, 32},
                      {8, 32},
                      {9, 40},
                      {10, 40},
                      {11, 48},
                      {12, 48},
                      {13, 64},
                      {14, 64}},
                     arc);
  }
  return 0;
}

Bytes EcdsaSignatureToDer(ByteView raw) {
  const std::size_t half = raw.size() / 2;
  const ByteView r = Significant(raw.first(half));
  const ByteView s = Significant(raw.subspan(half));
  const std::size_t size =
      HeaderSize(IntegerSize(r)) + IntegerSize(r) + HeaderSize(IntegerSize(s)) + IntegerSize(s);
  Bytes der;
  der.reserve(HeaderSize(size) + size);
  der.push_back(kSequence);
  AppendLength(size, &der);
  AppendInteger(r, &der);
  AppendInteger(s, &der);
  return der;
}

std::size_t MaxDerSize(std::size_t raw_size) {
  return raw_size < 2 ? 0 : EcdsaSignatureToDer(Bytes(raw_size, 0xff)).size();
}

bool IsDerSignature(ByteView bytes) {
  std::optional<ByteView> content = Take(kSequence, &bytes);
  if (!content || !bytes.empty()) return false;
  const std::optional<ByteView> r = Take(kInteger, &*content);
  const std::optional<ByteView> s = Take(kInteger, &*content);
  return r && s && !r->empty() && !s->empty() && content->empty();
}

std::optional<PublicPoint> ReadPublicPoint(ByteView bytes) {
  if (const std::size_t size = RawPointSize(bytes); size != 0) {
    return PublicPoint{Bytes(bytes.begin(), bytes.end()), WrapDer(kOctetString, bytes), size};
  }
  ByteView rest = bytes;
  const std::optional<ByteView> content = Take(kOctetString, &rest);
  if (!content || !rest.empty()) return std::nullopt;
  const std::size_t size = RawPointSize(*content);
  if (size == 0) return std::nullopt;
  return PublicPoint{Bytes(content->begin(), content->end()), Bytes(bytes.begin(), bytes.end()),
                     size};
}

}  // namespace kelvrin::adapter
