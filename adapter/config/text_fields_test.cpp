#include "adapter/config/text_fields.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace kelvrin::adapter {
namespace {

std::string TextOf(const std::string& field) {
  return FieldText({reinterpret_cast<const CK_UTF8CHAR*>(field.data()), field.size()});
}

TEST(TextFieldTest, PaddingOfEitherKindIsLeftOff) {
  EXPECT_EQ(TextOf("a b   "), "a b");
  EXPECT_EQ(TextOf(std::string("a \0xy", 5)), "a");
  EXPECT_EQ(TextOf("    "), "");
  EXPECT_EQ(TextOf(" full"), " full");
  EXPECT_EQ(WithoutLeadingBlanks(" \t a "), "a ");
  EXPECT_EQ(WithoutLeadingBlanks(" \t"), "");
}

TEST(TextFieldTest, TextIsCutWhereACharacterEnds) {
  std::array<CK_UTF8CHAR, 4> field = {};
  SetField(field, "abc\u00fc");
  EXPECT_EQ(std::string(field.begin(), field.end()), "abc ");
  SetField(field, "ab\u00fc");
  EXPECT_EQ(std::string(field.begin(), field.end()), "ab\u00fc");
  EXPECT_EQ(Cut("abc", 3), "abc");
  EXPECT_EQ(Cut("abc", 2), "ab");
  EXPECT_EQ(Cut("\x80\x80", 1), "") << "nothing but the rest of a character";
}

TEST(TextFieldTest, QuotedTextIsShortAndKeepsItsWholeCharacters) {
  EXPECT_EQ(Quoted("M\u00fcller \u00a0"), "'M\u00fcller \u00a0'");
  EXPECT_EQ(Quoted("\xc2"), "'\xc2'");
  EXPECT_EQ(Quoted("\u0080\u009fa\r\nb\x7f"), "'??a??b?'");
  EXPECT_EQ(Quoted(std::string(64, 'k')), "'" + std::string(64, 'k') + "'");
  EXPECT_EQ(Quoted(std::string(63, 'k') + "\u00fc"), "'" + std::string(63, 'k') + "...'");
}

}  // namespace
}  // namespace kelvrin::adapter
