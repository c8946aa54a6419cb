#include "encoding/der.h"

#include <cstddef>

namespace kelvrin::encoding {
namespace {

constexpr unsigned char kTagNumber = 0x1f;  // a number that does not fit has all of these bits
constexpr unsigned char kHighBit = 0x80;

// A length and the bytes that tell it.
struct Length {
  std::size_t value = 0;
  std::size_t size = 0;
};

std::optional<Length> ReadLength(ByteView bytes) {
  if (bytes.empty()) return std::nullopt;
  if (bytes.front() < kHighBit) return Length{bytes.front(), 1};
  const std::size_t digits = bytes.front() & 0x7fU;
  if (digits == 0 || digits > sizeof(std::size_t) || digits >= bytes.size()) return std::nullopt;
  Length length = {.size = 1 + digits};
  for (const unsigned char digit : bytes.subspan(1, digits))
    length.value = length.value << 8 | digit;
  const bool is_shortest = bytes[1] != 0 && length.value >= kHighBit;
  return is_shortest ? std::optional(length) : std::nullopt;
}

}  // namespace

std::optional<DerElement> DerReader::Take() {
  if (rest_.empty()) return std::nullopt;
  const unsigned char tag = rest_.front();
  if (tag == 0 || (tag & kTagNumber) == kTagNumber) return std::nullopt;
  const std::optional<Length> length = ReadLength(rest_.subspan(1));
  if (!length) return std::nullopt;
  const std::size_t header = 1 + length->size;
  if (rest_.size() - header < length->value) return std::nullopt;
  const DerElement element = {tag, rest_.subspan(header, length->value),
                              rest_.first(header + length->value)};
  rest_ = rest_.subspan(element.whole.size());
  return element;
}

std::optional<DerElement> DerReader::Take(unsigned char tag) {
  if (rest_.empty() || rest_.front() != tag) return std::nullopt;
  return Take();
}

std::optional<DerElement> ReadOnlyElement(unsigned char tag, ByteView bytes) {
  DerReader reader(bytes);
  const std::optional<DerElement> element = reader.Take(tag);
  return reader.IsAtEnd() ? element : std::nullopt;
}

bool IsDerInteger(ByteView content) {
  if (content.size() < 2) return !content.empty();
  const bool begins_negative = (content[1] & kHighBit) != 0;
  return content[0] != (begins_negative ? 0xff : 0);
}

std::optional<ByteView> ReadPositiveInteger(ByteView content) {
  if (!IsDerInteger(content) || (content.front() & kHighBit) != 0) return std::nullopt;
  if (content.front() != 0) return content;
  // The zero is there for the sign of what follows, or it is all there is.
  return content.size() > 1 ? std::optional(content.subspan(1)) : std::nullopt;
}

bool IsObjectIdentifier(ByteView content) {
  bool is_first = true;  // of a number's bytes
  for (const unsigned char byte : content) {
    if (is_first && byte == kHighBit) return false;
    is_first = (byte & kHighBit) == 0;
  }
  return is_first && !content.empty();
}

std::optional<DerBits> ReadBitString(ByteView content) {
  if (content.empty() || content.front() > 7) return std::nullopt;
  const DerBits bits = {content.front(), content.subspan(1)};
  if (bits.bytes.empty() && bits.unused != 0) return std::nullopt;
  return bits;
}

Bytes WrapDer(unsigned char tag, ByteView content) {
  const std::size_t size = content.size();
  Bytes out = {tag};
  if (size >= 0x100) {
    out.insert(out.end(), {0x82, static_cast<unsigned char>(size >> 8)});
  } else if (size >= kHighBit) {
    out.push_back(0x81);
  }
  out.push_back(static_cast<unsigned char>(size & 0xff));
  out.insert(out.end(), content.begin(), content.end());
  return out;
}

}  // namespace kelvrin::encoding
