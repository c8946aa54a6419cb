#include "adapter/text_fields.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace kelvrin::adapter {
namespace {

TEST(TextFieldTest, TextIsCutWhereACharacterEnds) {
  std::array<CK_UTF8CHAR, 4> field = {};
  SetField(field, "abc\u00fc");
  EXPECT_EQ(std::string(field.begin(), field.end()), "abc ");
  SetField(field, "ab\u00fc");
  EXPECT_EQ(std::string(field.begin(), field.end()), "ab\u00fc");
}

TEST(TextFieldTest, QuotedTextKeepsItsWholeCharacters) {
  EXPECT_EQ(Quoted("M\u00fcller \u00a0"), "'M\u00fcller \u00a0'");
  EXPECT_EQ(Quoted("\xc2"), "'\xc2'");
  EXPECT_EQ(Quoted("\u0080\u009fa\r\nb"), "'??a??b'");
}

}  // namespace
}  // namespace kelvrin::adapter
