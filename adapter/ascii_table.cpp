#include "adapter/ascii_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace kelvrin::adapter {
namespace {

using Block = std::span<const std::string_view>;

// Whole blocks, from the character named on.
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

constexpr char32_t kFirstGreek = 0x391;
constexpr std::array<std::string_view, 62> kGreek = {
    "A", "B", "G", "D", "E", "Z", "I",  "Th", "I", "K", "L", "M", "N", "X", "O", "P",
    "R", "?", "S", "T", "Y", "F", "Ch", "Ps", "O", "I", "Y", "a", "e", "i", "i", "y",
    "a", "b", "g", "d", "e", "z", "i",  "th", "i", "k", "l", "m", "n", "x", "o", "p",
    "r", "s", "s", "t", "y", "f", "ch", "ps", "o", "i", "y", "o", "y", "o",
};

constexpr char32_t kFirstCyrillic = 0x400;
constexpr std::array<std::string_view, 96> kCyrillic = {
    "E", "Yo", "Dj", "Gj", "Ye", "Dz", "I",  "Yi", "J",  "Lj",   "Nj", "C", "Kj", "I", "U",  "Dz",
    "A", "B",  "V",  "G",  "D",  "E",  "Zh", "Z",  "I",  "J",    "K",  "L", "M",  "N", "O",  "P",
    "R", "S",  "T",  "U",  "F",  "Kh", "Ts", "Ch", "Sh", "Shch", "",   "Y", "",   "E", "Yu", "Ya",
    "a", "b",  "v",  "g",  "d",  "e",  "zh", "z",  "i",  "j",    "k",  "l", "m",  "n", "o",  "p",
    "r", "s",  "t",  "u",  "f",  "kh", "ts", "ch", "sh", "shch", "",   "y", "",   "e", "yu", "ya",
    "e", "yo", "dj", "gj", "ye", "dz", "i",  "yi", "j",  "lj",   "nj", "c", "kj", "i", "u",  "dz",
};

// Letters and signs of other blocks, in order.
struct Row {
  char32_t character;
  std::string_view ascii;
};
constexpr std::array<Row, 42> kRows = {{
    {0x218, "S"},     {0x219, "s"},    {0x21a, "T"},   {0x21b, "t"},    {0x386, "A"},
    {0x388, "E"},     {0x389, "I"},    {0x38a, "I"},   {0x38c, "O"},    {0x38e, "Y"},
    {0x38f, "O"},     {0x390, "i"},    {0x490, "G"},   {0x491, "g"},    {0x1e9e, "Ss"},
    {0x2010, "-"},    {0x2011, "-"},   {0x2012, "-"},  {0x2013, "-"},   {0x2014, "-"},
    {0x2015, "-"},    {0x2018, "'"},   {0x2019, "'"},  {0x201a, "'"},   {0x201b, "'"},
    {0x201c, "\""},   {0x201d, "\""},  {0x201e, "\""}, {0x201f, "\""},  {0x2020, "+"},
    {0x2022, "*"},    {0x2026, "..."}, {0x202f, " "},  {0x2032, "'"},   {0x2033, "\""},
    {0x2039, "<"},    {0x203a, ">"},   {0x2044, "/"},  {0x20ac, "EUR"}, {0x2116, "No"},
    {0x2122, "(TM)"}, {0x2212, "-"},
}};

static_assert(std::ranges::is_sorted(kRows, {}, &Row::character), "searched by halves");

// The character's text in a block that begins with `first`; null when it lies outside.
const std::string_view* FindIn(Block block, char32_t first, char32_t character) {
  if (character < first || character - first >= block.size()) return nullptr;
  return &block[character - first];
}

}  // namespace

std::string_view AsciiOf(char32_t character) {
  for (const auto& [block, first] : {std::pair<Block, char32_t>{kLatin, kFirstLatin},
                                     {kGreek, kFirstGreek},
                                     {kCyrillic, kFirstCyrillic}}) {
    if (const auto* const found = FindIn(block, first, character)) return *found;
  }
  if (character >= 0x2000 && character <= 0x200a) return " ";
  const auto row =
      std::lower_bound(kRows.begin(), kRows.end(), character,
                       [](const Row& one, char32_t wanted) { return one.character < wanted; });
  return row != kRows.end() && row->character == character ? row->ascii : "?";
}

}  // namespace kelvrin::adapter
