// The fixed, blank-padded text fields of PKCS#11 records, and texts as messages show them.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace kelvrin::adapter {

// Blanks as they stand between words.
inline constexpr std::string_view kBlanks = " \t";

// The field's text without the padding, be it blanks or NULs.
inline std::string FieldText(std::span<const CK_UTF8CHAR> field) {
  const auto end = std::find(field.begin(), field.end(), CK_UTF8CHAR{0});
  std::string text(field.begin(), end);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// The text from its first word on.
inline std::string WithoutLeadingBlanks(const std::string& text) {
  return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

// The first `limit` bytes of the text, or fewer: a UTF-8 character stays whole.
inline std::string_view Cut(std::string_view text, std::size_t limit) {
  std::size_t size = std::min(text.size(), limit);
  while (size > 0 && size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
    --size;
  return text.substr(0, size);
}

// Fills the field with the text, padded with blanks. Text that does not fit is cut where a UTF-8
// character ends.
inline void SetField(std::span<CK_UTF8CHAR> field, std::string_view text) {
  text = Cut(text, field.size());
  std::fill(std::copy(text.begin(), text.end(), field.begin()), field.end(), CK_UTF8CHAR{' '});
}

inline bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// A text from a file or a card between quotation marks, as a message may show it: short, in one
// line, and without bytes that would upset a terminal.
inline std::string Quoted(std::string_view text) {
  constexpr std::size_t kMost = 64;
  std::string shown(Cut(text, kMost));
  std::replace_if(shown.begin(), shown.end(), IsControl, '?');
  // The control characters beyond ASCII: U+0080 to U+009F, two bytes each.
  for (std::size_t at = 0; (at = shown.find('\xc2', at)) != std::string::npos; ++at) {
    if (at + 1 < shown.size() && static_cast<unsigned char>(shown[at + 1]) < 0xa0) {
      shown.replace(at, 2, "?");
    }
  }
  return "'" + shown + (text.size() > kMost ? "...'" : "'");
}

}  // namespace kelvrin::adapter
