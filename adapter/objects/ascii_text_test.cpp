#include "adapter/objects/ascii_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace kelvrin::adapter {
namespace {

TEST(AsciiTextTest, TextsInAscii) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", ""},
      {"  two blanks  ", "  two blanks  "},
      {"Jürgen Groß, Äöü ÖÜ", "Juergen Gross, Aeoeue OeUe"},
      {"François Ñandú Ångström Æsir Øre Þór Đorđe",
       "Francois Nandu Angstroem Aesir Oere Thor Dorde"},
      {"Łódź Čapek Ğül ŞŢ ı İ Œuvre Ź Ž ž ź Ÿ ſ", "Lodz Capek Guel ST i I Oeuvre Z Z z z Y s"},
      {"“a” „b ‘c’ \u2010 – — … € a\u00a0b ½ ©", "\"a\" \"b 'c' - - - ... EUR a b 1/2 (c)"},
      // Decomposed letters are the same.
      {"Ju\u0308rgen A\u0308O\u0308", "Juergen AeOe"},
      {"Rene\u0301", "Rene"},
      {"a\u0300b\u036fc", "abc"},
      {"\u0308x e\u0308", "x e"},
      {"\u0301", "?"},
      // Other scripts' letters and other signs.
      {"Αθήνα Иван 名前 ≠ 😀 ẞ \u0180 \u0370 \u02ff", "????? ???? ?? ? ? ? ? ? ?"},
      // Control characters become blanks, NULs at the end go.
      {std::string("a\0b\tc\x7f\0\0", 8), "a b c "},
      {std::string(3, '\0'), ""},
      {"\u0080\u009f\x1f", "   "},
      // Bytes that are not UTF-8 are ISO 8859-1.
      {"J\xfcrgen", "Juergen"},
      {"\xfc", "ue"},
      {"\xc3", "A"},
      {"\xe2\x82", "a "},
      {"\xc3\x28", "A("},
      {"\xc0\x80", "A "},  // overlong forms
      {"\xc1\xbf", "A?"},
      {"\xe0\x9f\xbf", "a ?"},
      {"\xf0\x8f\xbf\xbf", "d ??"},
      {"\xed\xa0\x80", "i  "},  // half of a surrogate pair
      {"\xed\xbf\xbf", "i??"},
      {"\xf4\x90\x80\x80", "o   "},  // beyond the last character
      {"\xf5\x80\x80\x80", "o   "},
      // The first and the last of each size.
      {"\u0020~\u07ff\u0800\uffff\U00010000\U0010ffff", " ~?????"},
      {"\ud7ff\ue000", "??"},  // round the surrogates
  };
  for (const auto& [text, ascii] : rows) EXPECT_EQ(ToAscii(text), ascii) << text;
}

TEST(AsciiTextTest, AsciiComesBackAsItIs) {
  std::string all;
  for (char c = ' '; c < 0x7f; ++c) all.push_back(c);
  EXPECT_EQ(ToAscii(all), all);
  EXPECT_TRUE(IsAscii(all));
  EXPECT_TRUE(IsAscii(""));
  EXPECT_FALSE(IsAscii("a\x80"));
  EXPECT_FALSE(IsAscii("\xff"));
}

}  // namespace
}  // namespace kelvrin::adapter
