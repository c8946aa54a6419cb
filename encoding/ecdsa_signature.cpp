#include "encoding/ecdsa_signature.h"

#include <algorithm>

#include "encoding/der.h"

namespace kelvrin::encoding {
namespace {

struct Numbers {
  ByteView r;
  ByteView s;
};

std::optional<Numbers> ReadNumbers(ByteView der) {
  const auto sequence = ReadOnlyElement(kDerSequence, der);
  if (!sequence) return std::nullopt;
  DerReader inside(sequence->content);
  const auto first = inside.Take(kDerInteger);
  const auto second = inside.Take(kDerInteger);
  if (!first || !second || !inside.IsAtEnd()) return std::nullopt;
  const auto r = ReadPositiveInteger(first->content);
  const auto s = ReadPositiveInteger(second->content);
  if (!r || !s) return std::nullopt;
  return Numbers{*r, *s};
}

// The INTEGER of a number with leading zeros.
Bytes Integer(ByteView number) {
  while (number.size() > 1 && number.front() == 0) number = number.subspan(1);
  Bytes content(number.begin(), number.end());
  // One that begins with a set bit would be negative.
  if ((content.front() & 0x80) != 0) content.insert(content.begin(), 0);
  return WrapDer(kDerInteger, content);
}

}  // namespace

Bytes EcdsaSignatureToDer(ByteView raw) {
  Bytes numbers = Integer(raw.first(raw.size() / 2));
  const Bytes s = Integer(raw.subspan(raw.size() / 2));
  numbers.insert(numbers.end(), s.begin(), s.end());
  return WrapDer(kDerSequence, numbers);
}

bool IsDerSignature(ByteView der) { return ReadNumbers(der).has_value(); }

std::optional<Bytes> EcdsaSignatureToRaw(ByteView der, std::size_t size) {
  const auto numbers = ReadNumbers(der);
  if (!numbers || numbers->r.size() > size || numbers->s.size() > size) return std::nullopt;
  Bytes raw(2 * size);
  std::copy_backward(numbers->r.begin(), numbers->r.end(),
                     raw.begin() + static_cast<std::ptrdiff_t>(size));
  std::copy_backward(numbers->s.begin(), numbers->s.end(), raw.end());
  return raw;
}

}  // namespace kelvrin::encoding
