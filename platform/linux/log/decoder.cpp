#include "platform/linux/log/decoder.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>

namespace oslog {
namespace {

// High nibble of an item's descriptor.
enum ItemKind : uint8_t {
  kScalarItem = 0,
  kCountItem = 1,  // the precision of the item that follows
  kStringItem = 2,
  kBytesItem = 3,
  kObjectItem = 4,
  kErrnoItem = 6,
  kMaskItem = 7,  // how to show the item that follows, instead of as it is
};

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

  // The next item, left where it is.
  std::optional<Item> Peek() const {
    if (end_ - at_ < 2 || end_ - at_ - 2 < at_[1]) return std::nullopt;
    return Item{static_cast<uint8_t>(at_[0] >> 4), static_cast<uint8_t>(at_[0] & 0xF), at_ + 2,
                at_[1]};
  }
  std::optional<Item> Next() {
    const std::optional<Item> item = Peek();
    at_ = item ? item->value + item->size : end_;
    return item;
  }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};

// A conversion of the format: "%{public}-5.2lx" has the flags "-", the width "5", ...
struct Conversion {
  std::string flags;
  std::string width;             // digits, "*" or nothing
  std::optional<int> precision;  // "*" comes with the items
  bool wide = false;
  char letter = 0;
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Takes the characters that satisfy the test off the front.
template <typename Test>
std::string_view TakeWhile(std::string_view* text, Test test) {
  size_t length = 0;
  while (length < text->size() && test((*text)[length])) ++length;
  const std::string_view taken = text->substr(0, length);
  text->remove_prefix(length);
  return taken;
}

// Takes a conversion off the front of the format, behind its "%".
Conversion TakeConversion(std::string_view* format) {
  Conversion conversion;
  if (format->starts_with('{')) format->remove_prefix(std::min(format->find('}'), format->size()));
  if (format->starts_with('}')) format->remove_prefix(1);
  const auto is_flag = [](char c) { return strchr("-+ #0", c) != nullptr && c != 0; };
  const auto is_width = [](char c) { return IsDigit(c) || c == '*'; };
  conversion.flags = TakeWhile(format, is_flag);
  conversion.width = TakeWhile(format, is_width);
  if (format->starts_with('.')) {
    format->remove_prefix(1);
    const std::string_view digits = TakeWhile(format, is_width);
    int precision = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), precision);
    if (digits != "*") conversion.precision = precision;
  }
  const auto is_length = [](char c) { return strchr("hlqjztL", c) != nullptr && c != 0; };
  const std::string_view length = TakeWhile(format, is_length);
  if (!format->empty()) {
    conversion.letter = format->front();
    format->remove_prefix(1);
  }
  conversion.wide = length.starts_with('l');
  return conversion;
}

// The formats put together here are ours: flags, width and precision of a literal that the compiler
// checked, and a length that fits the value.
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

// Turns one conversion and its items into an argument.
class ArgumentReader {
 public:
  ArgumentReader(ItemReader* items, ObjectDescriber describe, int error)
      : items_(items), describe_(describe), error_(error) {}

  Argument Read(Conversion conversion) {
    if (conversion.width == "*") {
      const std::optional<Item> width = items_->Next();
      if (!width) return Failure("missing data");
      conversion.width = std::to_string(width->number());
    }
    bool masked = false;
    for (std::optional<Item> item = items_->Peek();
         item && (item->kind == kCountItem || item->kind == kMaskItem); item = items_->Peek()) {
      if (item->kind == kCountItem) conversion.precision = static_cast<int>(item->number());
      masked = masked || item->kind == kMaskItem;
      items_->Next();
    }
    const std::optional<Item> item = items_->Next();
    if (!item) return Failure("missing data");
    Argument argument = TextOf(*item, conversion);
    argument.privacy = PrivacyOf(*item, masked);
    return argument;
  }

 private:
  static Argument Failure(const std::string& what) {
    return {Privacy::kPublic, Kind::kScalar, "<decode: " + what + ">"};
  }

  static Privacy PrivacyOf(const Item& item, bool masked) {
    if (masked) return Privacy::kPrivate;
    if ((item.privacy & 2) != 0) return Privacy::kPublic;
    return item.privacy == 0 ? Privacy::kUnspecified : Privacy::kPrivate;
  }

  Argument TextOf(const Item& item, const Conversion& conversion) const {
    std::string conversion_text = "%" + conversion.flags + conversion.width;
    const int precision = conversion.precision.value_or(-1);
    if (precision >= 0) conversion_text += "." + std::to_string(precision);
    switch (item.kind) {
      case kScalarItem:
        return Scalar(item, conversion, conversion_text);
      case kErrnoItem:
        return {{}, Kind::kScalar, std::generic_category().message(error_)};
      case kStringItem:
        if (conversion.letter != 's' || conversion.wide) return Failure("mismatch");
        return {{}, Kind::kString, String(item, conversion_text)};
      case kObjectItem:
        return {{}, Kind::kObject, Object(item)};
      case kBytesItem:
        return {{}, Kind::kBytes, Bytes(item, conversion.precision.value_or(0))};
      default:
        return Failure("mismatch");
    }
  }

  static Argument Scalar(const Item& item, const Conversion& conversion,
                         const std::string& conversion_text) {
    const char letter = conversion.letter;
    switch (letter) {
      case 'd':
      case 'i':
        return {{}, Kind::kScalar, Print(conversion_text + "ll" + letter, item.number())};
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        return {{}, Kind::kScalar, Print(conversion_text + "ll" + letter, item.bits())};
      case 'c':
        return {
            {}, Kind::kScalar, Print(conversion_text + letter, static_cast<int>(item.number()))};
      case 'p':
        return {{}, Kind::kScalar, Print(conversion_text + letter, item.pointer())};
      default:
        return Floating(item, letter, conversion_text);
    }
  }

  static Argument Floating(const Item& item, char letter, const std::string& conversion_text) {
    if (letter == 0 || strchr("aAeEfFgG", letter) == nullptr) return Failure("mismatch");
    if (item.size == sizeof(double)) {
      double value = 0;
      memcpy(&value, item.value, sizeof(value));
      return {{}, Kind::kScalar, Print(conversion_text + letter, value)};
    }
    if (item.size != sizeof(long double)) return Failure("mismatch");
    long double value = 0;
    memcpy(&value, item.value, sizeof(value));
    return {{}, Kind::kScalar, Print(conversion_text + "L" + letter, value)};
  }

  static std::string String(const Item& item, const std::string& conversion_text) {
    const char* text = static_cast<const char*>(item.pointer());
    return text == nullptr ? "(null)" : Print(conversion_text + "s", text);
  }

  std::string Object(const Item& item) const {
    if (item.pointer() == nullptr) return "(null)";
    return describe_ == nullptr ? Print("%p", item.pointer()) : describe_(item.pointer());
  }

  static std::string Bytes(const Item& item, int count) {
    if (item.pointer() == nullptr) return "(null)";
    const auto* byte = static_cast<const uint8_t*>(item.pointer());
    std::string text;
    for (int i = 0; i < count; ++i) text += Print("%02X", static_cast<unsigned>(byte[i]));
    return text;
  }

  ItemReader* items_;
  ObjectDescriber describe_;
  int error_;
};

}  // namespace

Line Decode(os_log_type_t type, const char* format, const uint8_t* buffer, size_t size,
            ObjectDescriber describe, int error) {
  Line line;
  line.type = type;
  line.format = format;
  ItemReader items(buffer, size);
  ArgumentReader arguments(&items, describe, error);
  std::string_view rest = format;
  while (!rest.empty()) {
    line.pieces.back() += TakeWhile(&rest, [](char c) { return c != '%'; });
    if (rest.empty()) break;
    rest.remove_prefix(1);
    const Conversion conversion = TakeConversion(&rest);
    if (conversion.letter == '%') {
      line.pieces.back() += '%';
      continue;
    }
    line.arguments.push_back(arguments.Read(conversion));
    line.pieces.emplace_back();
  }
  return line;
}

}  // namespace oslog
