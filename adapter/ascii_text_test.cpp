#include "adapter/ascii_text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvrin::adapter {
namespace {

TEST(AsciiTextTest, AsciiComesBackAsItIs) {
  std::string all;
  for (char c = ' '; c < 0x7f; ++c) all.push_back(c);
  EXPECT_EQ(ToAscii(all), all);
  EXPECT_EQ(ToAscii(""), "");
  EXPECT_EQ(ToAscii("  two blanks  "), "  two blanks  ");
}

TEST(AsciiTextTest, UmlautsAndSharpSAreSpeltOut) {
  EXPECT_EQ(ToAscii("Jürgen Groß, Äöü ÖÜ ẞ"), "Juergen Gross, Aeoeue OeUe Ss");
}

TEST(AsciiTextTest, DecomposedLettersAreTheSame) {
  EXPECT_EQ(ToAscii("Ju\u0308rgen"), "Juergen");
  EXPECT_EQ(ToAscii("Rene\u0301"), "Rene");
  EXPECT_EQ(ToAscii("\u0308x"), "x");
}

TEST(AsciiTextTest, CombiningMarksOfEveryBlockAreDropped) {
  for (const std::string mark : {"\u0300", "\u036f", "\u0483", "\u0489", "\u1ab0", "\u1aff",
                                 "\u1dc0", "\u1dff", "\u20d0", "\u20ff", "\ufe20", "\ufe2f"}) {
    EXPECT_EQ(ToAscii("a" + mark + "b"), "ab") << mark;
  }
}

TEST(AsciiTextTest, TextNeverVanishes) {
  EXPECT_EQ(ToAscii("ь"), "?");
  EXPECT_EQ(ToAscii("Ъ"), "?");
  EXPECT_EQ(ToAscii("\u0301"), "?");
  EXPECT_EQ(ToAscii("соль"), "sol");
}

TEST(AsciiTextTest, LettersLoseTheirMarks) {
  EXPECT_EQ(ToAscii("François Ñandú Ångström Æsir Øre Þór Đorđe"),
            "Francois Nandu Angstroem Aesir Oere Thor Dorde");
  EXPECT_EQ(ToAscii("Łódź Čapek Ğül ŞŢ ı İ Œuvre Ź Ž ž ź Ÿ ſ"),
            "Lodz Capek Guel ST i I Oeuvre Z Z z z Y s");
  EXPECT_EQ(ToAscii("Ștefan Țepeș"), "Stefan Tepes");
}

TEST(AsciiTextTest, GreekAndCyrillicAreRomanised) {
  EXPECT_EQ(ToAscii("Αθήνα Ψυχή"), "Athina Psychi");
  EXPECT_EQ(ToAscii("Иван Щукин Ёж"), "Ivan Shchukin Yozh");
  EXPECT_EQ(ToAscii("Київ Њ"), "Kiyiv Nj");
  EXPECT_EQ(ToAscii("Ґанок ґрунт"), "Ganok grunt");
}

TEST(AsciiTextTest, SignsBecomeWhatIsTypedForThem) {
  EXPECT_EQ(ToAscii("“a” „b‟ ‘c’ – — … € ™ № a\u00a0b ½ ©"),
            "\"a\" \"b\" 'c' - - ... EUR (TM) No a b 1/2 (c)");
}

TEST(AsciiTextTest, WhatIsLeftBecomesAQuestionMark) { EXPECT_EQ(ToAscii("名前 ≠ 😀"), "?? ? ?"); }

TEST(AsciiTextTest, ControlCharactersBecomeBlanksAndNulsAtTheEndGo) {
  EXPECT_EQ(ToAscii(std::string("a\0b\tc\x7f\0\0", 8)), "a b c ");
  EXPECT_EQ(ToAscii("\u0085"), " ");
}

TEST(AsciiTextTest, BytesThatAreNotUtf8AreReadAsLatin1) {
  EXPECT_EQ(ToAscii("J\xfcrgen"), "Juergen");
  EXPECT_EQ(ToAscii("\xfc"), "ue");
  EXPECT_EQ(ToAscii("\xc3"), "A");
  EXPECT_EQ(ToAscii("\xe2\x82"), "a ");
  EXPECT_EQ(ToAscii("\xc0\x80"), "A ") << "an overlong form";
  EXPECT_EQ(ToAscii("\xed\xa0\x80"), "i  ") << "half of a surrogate pair";
  EXPECT_EQ(ToAscii("\xed\xbf\xbf").front(), 'i');
  EXPECT_EQ(ToAscii("\xed\x9f\xbf"), "?") << "the last before the surrogates";
  EXPECT_EQ(ToAscii("\xee\x80\x80"), "?") << "the first after the surrogates";
  EXPECT_EQ(ToAscii("\xf5\x80\x80\x80").front(), 'o');
}

TEST(AsciiTextTest, Utf8IsToldFromOtherEncodings) {
  for (const char* text : {"", "plain", "Gerät", "名前", "😀"}) EXPECT_TRUE(IsUtf8(text)) << text;
  for (const char* text :
       {"Ger\xe4t", "\xc3", "a\x80", "\xc0\xaf", "\xed\xa0\x80", "\xf5\x80\x80\x80"}) {
    EXPECT_FALSE(IsUtf8(text)) << text;
  }
}

TEST(AsciiTextTest, EveryByteAndEveryCharacterGivesPrintableAscii) {
  const auto is_printable = [](char c) { return c >= ' ' && c < 0x7f; };
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string text = {static_cast<char>(first), static_cast<char>(second)};
      const std::string ascii = ToAscii(text);
      EXPECT_TRUE(std::all_of(ascii.begin(), ascii.end(), is_printable)) << first << " " << second;
    }
  }
}

}  // namespace
}  // namespace kelvrin::adapter
