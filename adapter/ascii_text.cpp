#include "adapter/ascii_text.h"

#include <array>
#include <cstdint>

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
  is_utf8 = is_utf8 && character >= kSmallest[size] && character <= 0x10ffff;
  text->remove_prefix(is_utf8 ? size : 1);
  return is_utf8 ? character : first;
}

bool IsCombiningMark(char32_t character) {
  return (character >= 0x300 && character < 0x370) || (character >= 0x1ab0 && character < 0x1b00) ||
         character == 0x200d || (character >= 0xfe00 && character < 0xfe10);
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
  while (!text.empty()) Append(Take(&text), &ascii);
  return ascii;
}

}  // namespace kelvrin::adapter
