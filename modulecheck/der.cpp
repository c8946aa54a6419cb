#include "modulecheck/der.h"

namespace kelvrin::modulecheck {
namespace {

constexpr CK_BYTE kInteger = 0x02;
constexpr CK_BYTE kSequence = 0x30;

using View = std::span<const CK_BYTE>;

// Takes an element with this tag off the front of `rest`; its contents. Only lengths in the
// shortest form, of at most four bytes, are elements.
std::optional<View> Take(CK_BYTE tag, View* rest) {
  if (rest->size() < 2 || (*rest)[0] != tag) return std::nullopt;
  std::size_t length = (*rest)[1];
  std::size_t header = 2;
  if (length > 0x80) {
    const std::size_t digits = length - 0x80;
    header += digits;
    if (digits > 4 || rest->size() < header || (*rest)[2] == 0) return std::nullopt;
    length = 0;
    for (std::size_t i = 2; i < header; ++i) length = length << 8 | (*rest)[i];
    if (length < 0x80) return std::nullopt;
  } else if (length == 0x80) {
    return std::nullopt;
  }
  if (rest->size() - header < length) return std::nullopt;
  const View contents = rest->subspan(header, length);
  *rest = rest->subspan(header + length);
  return contents;
}

// Takes a positive INTEGER off the front of `rest` and appends it to `raw` in `size` bytes.
bool TakeNumber(std::size_t size, View* rest, Bytes* raw) {
  const std::optional<View> taken = Take(kInteger, rest);
  if (!taken || taken->empty()) return false;
  View number = *taken;
  if ((number[0] & 0x80) != 0) return false;
  if (number[0] == 0) {
    if (number.size() == 1 || (number[1] & 0x80) == 0) return false;
    number = number.subspan(1);
  }
  if (number.size() > size) return false;
  raw->insert(raw->end(), size - number.size(), 0);
  raw->insert(raw->end(), number.begin(), number.end());
  return true;
}

}  // namespace

bool IsSequence(View der) { return Take(kSequence, &der) && der.empty(); }

std::optional<Bytes> RawEcdsaSignature(View der, std::size_t size) {
  std::optional<View> numbers = Take(kSequence, &der);
  Bytes raw;
  if (!numbers || !der.empty() || !TakeNumber(size, &*numbers, &raw) ||
      !TakeNumber(size, &*numbers, &raw) || !numbers->empty()) {
    return std::nullopt;
  }
  return raw;
}

}  // namespace kelvrin::modulecheck
