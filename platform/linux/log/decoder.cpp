#include "platform/linux/log/decoder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace oslog {
namespace {

// High nibble of an item's descriptor. There are others, for precisions, byte strings, %m and
// masks.
enum ItemKind : uint8_t { kScalarItem = 0, kStringItem = 2, kObjectItem = 4 };

struct Item {
  uint8_t kind;
  uint8_t privacy;
  const uint8_t* value;
  size_t size;

  uint64_t bits() const {
    uint64_t bits = 0;
    memcpy(&bits, value, std::min(size, sizeof(bits)));
    return bits;
  }
  // The value as a number of its own size.
  int64_t number() const {
    if (size == 0 || size >= sizeof(int64_t)) return static_cast<int64_t>(bits());
    const unsigned unused = static_cast<unsigned>(64 - 8 * size);
    return static_cast<int64_t>(bits() << unused) >> unused;
  }
  const void* pointer() const {
    const void* pointer = nullptr;
    if (size == sizeof(pointer)) memcpy(static_cast<void*>(&pointer), value, sizeof(pointer));
    return pointer;
  }
};

// Hands out a buffer's items in order; stops at the first that does not fit.
class ItemReader {
 public:
  ItemReader(const uint8_t* buffer, size_t size)
      : at_(size < 2 ? buffer + size : buffer + 2), end_(buffer + size) {}

  std::optional<Item> Next() {
    if (end_ - at_ < 2 || end_ - at_ - 2 < at_[1]) {
      at_ = end_;
      return std::nullopt;
    }
    const Item item = {static_cast<uint8_t>(at_[0] >> 4), static_cast<uint8_t>(at_[0] & 0xF),
                       at_ + 2, at_[1]};
    at_ = item.value + item.size;
    return item;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A conversion of the format: "%{public}-05lx" has the flags and the width "-05", and "x".
struct Conversion {
  std::string width;
  char letter = 0;
};

// Takes the characters before a position off the front; all of them where it is none.
std::string_view TakeUpTo(std::string_view* text, size_t position) {
  const std::string_view taken = text->substr(0, position);
  text->remove_prefix(taken.size());
  return taken;
}

// Takes a conversion off the front of the format, behind its "%".
Conversion TakeConversion(std::string_view* format) {
  if (format->starts_with('{')) format->remove_prefix(std::min(format->find('}'), format->size()));
  if (format->starts_with('}')) format->remove_prefix(1);
  Conversion conversion;
  conversion.width = TakeUpTo(format, format->find_first_not_of("-+ #0123456789"));
  TakeUpTo(format, format->find_first_not_of("hlqjzt"));
  if (!format->empty()) {
    conversion.letter = format->front();
    format->remove_prefix(1);
  }
  return conversion;
}

// The formats put together here are ours: flags and width of a literal that the compiler checked,
// and a length that fits the value.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
template <typename Value>
std::string Print(const std::string& format, Value value) {
  const int length = snprintf(nullptr, 0, format.c_str(), value);
  if (length < 0) return "";
  std::string text(static_cast<size_t>(length) + 1, '\0');
  snprintf(text.data(), text.size(), format.c_str(), value);
  text.pop_back();
  return text;
}
#pragma clang diagnostic pop

Argument Failure(const std::string& what) {
  return {Privacy::kPublic, Kind::kScalar, "<decode: " + what + ">"};
}

Privacy PrivacyOf(const Item& item) {
  if ((item.privacy & 2) != 0) return Privacy::kPublic;
  return item.privacy == 0 ? Privacy::kUnspecified : Privacy::kPrivate;
}

std::string TextOfObject(const void* object, ObjectDescriber describe) {
  if (object == nullptr) return "(null)";
  return describe == nullptr ? Print("%p", object) : describe(object);
}

// Turns a conversion and its item into an argument.
Argument ToArgument(const Item& item, const Conversion& conversion, ObjectDescriber describe) {
  const char letter = conversion.letter;
  const std::string format = "%" + conversion.width + "ll" + letter;
  if (item.kind == kScalarItem && letter == 'd') {
    return {PrivacyOf(item), Kind::kScalar, Print(format, item.number())};
  }
  if (item.kind == kScalarItem && (letter == 'u' || letter == 'x' || letter == 'X')) {
    return {PrivacyOf(item), Kind::kScalar, Print(format, item.bits())};
  }
  if (item.kind == kStringItem && letter == 's') {
    const auto* text = static_cast<const char*>(item.pointer());
    return {PrivacyOf(item), Kind::kString, text == nullptr ? "(null)" : text};
  }
  if (item.kind == kObjectItem && letter == '@') {
    return {PrivacyOf(item), Kind::kObject, TextOfObject(item.pointer(), describe)};
  }
  return Failure("mismatch");
}

}  // namespace

Line Decode(os_log_type_t type, const char* format, const uint8_t* buffer, size_t size,
            ObjectDescriber describe) {
  Line line;
  line.type = type;
  line.format = format;
  ItemReader items(buffer, size);
  std::string_view rest = format;
  while (!rest.empty()) {
    line.pieces.back() += TakeUpTo(&rest, rest.find('%'));
    if (rest.empty()) break;
    rest.remove_prefix(1);
    const Conversion conversion = TakeConversion(&rest);
    if (conversion.letter == '%') {
      line.pieces.back() += '%';
      continue;
    }
    const std::optional<Item> item = items.Next();
    line.arguments.push_back(item ? ToArgument(*item, conversion, describe)
                                  : Failure("missing data"));
    line.pieces.emplace_back();
  }
  return line;
}

}  // namespace oslog
