// DER. It is read as whole elements with lengths in their shortest form, and tags of one byte.
#pragma once

#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

inline constexpr unsigned char kDerBoolean = 0x01;
inline constexpr unsigned char kDerInteger = 0x02;
inline constexpr unsigned char kDerBitString = 0x03;
inline constexpr unsigned char kDerOctetString = 0x04;
inline constexpr unsigned char kDerNull = 0x05;
inline constexpr unsigned char kDerObjectIdentifier = 0x06;
inline constexpr unsigned char kDerUtcTime = 0x17;
inline constexpr unsigned char kDerGeneralizedTime = 0x18;
inline constexpr unsigned char kDerSequence = 0x30;
inline constexpr unsigned char kDerSet = 0x31;

// One element; its views are into the bytes that were read.
struct DerElement {
  unsigned char tag = 0;
  ByteView content;
  ByteView whole;  // with the tag and the length
};

// Takes one element after the other off the front of some bytes, which outlive it. What an element
// contains is read by a reader of its own: nothing here recurs or allocates.
class DerReader {
 public:
  explicit DerReader(ByteView bytes) : rest_(bytes) {}

  bool IsAtEnd() const { return rest_.empty(); }

  // Takes the next element; nothing, and nothing is taken, when there is none, when it runs past
  // the end, or when its length has an indefinite or a longer form than it needs.
  std::optional<DerElement> Take();
  // The same, and an element with another tag is not taken either.
  std::optional<DerElement> Take(unsigned char tag);

 private:
  ByteView rest_;
};

// The one element with this tag that the bytes are; nothing when they are anything else.
std::optional<DerElement> ReadOnlyElement(unsigned char tag, ByteView bytes);

// The following take the content of an element.

// Whether an INTEGER's content is in its shortest form.
bool IsDerInteger(ByteView content);
// An INTEGER above zero, big-endian without leading zeros; nothing for others.
std::optional<ByteView> ReadPositiveInteger(ByteView content);

// Whether an OBJECT IDENTIFIER's content consists of whole numbers in their shortest form.
bool IsObjectIdentifier(ByteView content);

struct DerBits {
  unsigned unused = 0;  // bits at the end of the last byte that do not count, 0 to 7; not looked at
  ByteView bytes;
};
// A BIT STRING's bits.
std::optional<DerBits> ReadBitString(ByteView content);

// An element: the tag, the length and the content, which has less than 64 KiB.
Bytes WrapDer(unsigned char tag, ByteView content);

}  // namespace kelvrin::encoding
