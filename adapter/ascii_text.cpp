#include "adapter/ascii_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "adapter/ascii_table.h"

namespace kelvrin::adapter {
namespace {

constexpr char32_t kDiaeresis = 0x308;

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

// Takes one character off the front: of UTF-8, or else one byte as ISO 8859-1.
char32_t Take(std::string_view* text) {
  const auto first = static_cast<unsigned char>(text->front());
  const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc0 ? 2 : 1;
  constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  bool is_utf8 = size > 1 && first < 0xf5 && text->size() >= size;
  char32_t character = first & (0xff >> (size + 1));
  for (std::size_t i = 1; is_utf8 && i < size; ++i) {
    is_utf8 = IsContinuation((*text)[i]);
    character = character << 6 | (static_cast<unsigned char>((*text)[i]) & 0x3f);
  }
  const bool is_surrogate = character >= 0xd800 && character < 0xe000;
  is_utf8 = is_utf8 && character >= kSmallest[size] && character <= 0x10ffff && !is_surrogate;
  text->remove_prefix(is_utf8 ? size : 1);
  return is_utf8 ? character : first;
}

// What only changes the character before it: marks, joiners, variation selectors.
bool IsCombiningMark(char32_t character) {
  struct Range {
    char32_t first, last;
  };
  constexpr std::array<Range, 8> kMarks = {{{0x300, 0x36f},
                                            {0x483, 0x489},
                                            {0x1ab0, 0x1aff},
                                            {0x1dc0, 0x1dff},
                                            {0x200d, 0x200d},
                                            {0x20d0, 0x20ff},
                                            {0xfe00, 0xfe0f},
                                            {0xfe20, 0xfe2f}}};
  return std::any_of(kMarks.begin(), kMarks.end(), [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

void Append(char32_t character, std::string* ascii) {
  if (character < 0x20 || (character >= 0x7f && character < 0xa0)) {
    ascii->push_back(' ');
  } else if (character < 0x7f) {
    ascii->push_back(static_cast<char>(character));
  } else if (character == kDiaeresis) {
    // A decomposed umlaut.
    const char base = ascii->empty() ? ' ' : ascii->back();
    if (std::string_view("aouAOU").find(base) != std::string_view::npos) ascii->push_back('e');
  } else if (!IsCombiningMark(character)) {
    ascii->append(AsciiOf(character));
  }
}

}  // namespace

std::string ToAscii(std::string_view text) {
  text = text.substr(0, text.find_last_not_of('\0') + 1);
  std::string ascii;
  ascii.reserve(text.size());
  const bool has_text = !text.empty();
  while (!text.empty()) Append(Take(&text), &ascii);
  // Nothing but characters that leave no trace beside others, a soft sign for instance.
  if (has_text && ascii.empty()) ascii = "?";
  return ascii;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::string_view rest = text;
    Take(&text);
    // A single byte that is no character of its own was not UTF-8.
    if (rest.size() - text.size() == 1 && static_cast<unsigned char>(rest.front()) >= 0x80) {
      return false;
    }
  }
  return true;
}

}  // namespace kelvrin::adapter
