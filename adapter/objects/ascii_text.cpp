#include "adapter/objects/ascii_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace kelvrin::adapter {
namespace {

constexpr char32_t kDiaeresis = 0x308;
constexpr char32_t kFirstMark = 0x300;
constexpr char32_t kLastMark = 0x36f;

constexpr char32_t kFirstLatin = 0xa0;  // Latin-1 Supplement and Latin Extended-A
constexpr std::array<std::string_view, 224> kLatin = {
    " ",   "!",   "c",  "GBP", "$",  "JPY", "|",  "S", "\"", "(c)", "a",  "<<", "-",  "-",   "(R)",
    "-",   "deg", "+-", "2",   "3",  "'",   "u",  "P", ".",  ",",   "1",  "o",  ">>", "1/4", "1/2",
    "3/4", "?",   "A",  "A",   "A",  "A",   "Ae", "A", "Ae", "C",   "E",  "E",  "E",  "E",   "I",
    "I",   "I",   "I",  "D",   "N",  "O",   "O",  "O", "O",  "Oe",  "x",  "Oe", "U",  "U",   "U",
    "Ue",  "Y",   "Th", "ss",  "a",  "a",   "a",  "a", "ae", "a",   "ae", "c",  "e",  "e",   "e",
    "e",   "i",   "i",  "i",   "i",  "d",   "n",  "o", "o",  "o",   "o",  "oe", "/",  "oe",  "u",
    "u",   "u",   "ue", "y",   "th", "y",   "A",  "a", "A",  "a",   "A",  "a",  "C",  "c",   "C",
    "c",   "C",   "c",  "C",   "c",  "D",   "d",  "D", "d",  "E",   "e",  "E",  "e",  "E",   "e",
    "E",   "e",   "E",  "e",   "G",  "g",   "G",  "g", "G",  "g",   "G",  "g",  "H",  "h",   "H",
    "h",   "I",   "i",  "I",   "i",  "I",   "i",  "I", "i",  "I",   "i",  "IJ", "ij", "J",   "j",
    "K",   "k",   "k",  "L",   "l",  "L",   "l",  "L", "l",  "L",   "l",  "L",  "l",  "N",   "n",
    "N",   "n",   "N",  "n",   "n",  "NG",  "ng", "O", "o",  "O",   "o",  "O",  "o",  "Oe",  "oe",
    "R",   "r",   "R",  "r",   "R",  "r",   "S",  "s", "S",  "s",   "S",  "s",  "S",  "s",   "T",
    "t",   "T",   "t",  "T",   "t",  "U",   "u",  "U", "u",  "U",   "u",  "U",  "u",  "U",   "u",
    "U",   "u",   "W",  "w",   "Y",  "y",   "Y",  "Z", "z",  "Z",   "z",  "Z",  "z",  "s",
};

// Signs of other blocks that labels have.
struct Row {
  char32_t character;
  std::string_view ascii;
};
constexpr std::array<Row, 10> kRows = {{{0x2010, "-"},
                                        {0x2013, "-"},
                                        {0x2014, "-"},
                                        {0x2018, "'"},
                                        {0x2019, "'"},
                                        {0x201c, "\""},
                                        {0x201d, "\""},
                                        {0x201e, "\""},
                                        {0x2026, "..."},
                                        {0x20ac, "EUR"}}};

std::string_view AsciiOf(char32_t character) {
  if (character >= kFirstLatin && character - kFirstLatin < kLatin.size()) {
    return kLatin[character - kFirstLatin];
  }
  const auto* const row = std::find_if(kRows.begin(), kRows.end(),
                                       [&](const Row& one) { return one.character == character; });
  return row == kRows.end() ? "?" : row->ascii;
}

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

void Append(char32_t character, std::string* ascii) {
  if (character < 0x20 || (character >= 0x7f && character < 0xa0)) {
    ascii->push_back(' ');
  } else if (character < 0x7f) {
    ascii->push_back(static_cast<char>(character));
  } else if (character == kDiaeresis) {
    // A decomposed umlaut.
    const char base = ascii->empty() ? ' ' : ascii->back();
    if (std::string_view("aouAOU").find(base) != std::string_view::npos) ascii->push_back('e');
  } else if (character < kFirstMark || character > kLastMark) {
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
  // Nothing but combining marks.
  if (has_text && ascii.empty()) ascii = "?";
  return ascii;
}

bool IsAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

}  // namespace kelvrin::adapter
