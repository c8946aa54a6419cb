#include "modulecheck/slot_choice.h"

#include <gtest/gtest.h>

#include <vector>

namespace kelvrin::modulecheck {
namespace {

// A description of 64 bytes, padded with this.
std::string Padded(std::string text, char padding = ' ') {
  text.resize(64, padding);
  return text;
}

TEST(SlotChoiceTest, TheFirstDescriptionThatContainsTheNameOrTheLastOneIsTaken) {
  const std::vector<std::string> three = {Padded("Reader A"), Padded("Reader B"),
                                          Padded("Reader A B")};
  const std::vector<std::string> one = {three[0]};
  const std::vector<std::string> cut = {Padded(std::string("Reader\0Other", 12), '\0')};
  struct Case {
    const std::vector<std::string>& slots;
    const char* name;
    Choice choice;
    std::size_t index = 0;
  };
  const Case cases[] = {
      {three, "Reader B", Choice::kMatch, 1},
      {three, "B", Choice::kMatch, 1},
      {three, "A B", Choice::kMatch, 2},
      // Case and blanks count, and the padding takes part.
      {three, "reader b", Choice::kFallback, 2},
      {three, "Reader B  ", Choice::kMatch, 1},
      // Without a match.
      {three, "Reader C", Choice::kFallback, 2},
      {one, "Reader C", Choice::kFallback},
      // Without a name only a single slot is taken.
      {one, "", Choice::kOnlySlot},
      {three, "", Choice::kRefused},
      {{}, "Reader A", Choice::kNoSlot},
      {{}, "", Choice::kNoSlot},
      // What lies behind a NUL is not searched.
      {cut, "Reader", Choice::kMatch},
      {cut, "Other", Choice::kFallback},
      {cut, "Reader ", Choice::kFallback},
  };
  for (const Case& one_case : cases) {
    SCOPED_TRACE(one_case.name);
    const SlotChoice made = ChooseSlot(one_case.slots, one_case.name);
    EXPECT_EQ(made.choice, one_case.choice);
    EXPECT_EQ(made.index, one_case.index);
  }
}

TEST(SameTokenTest, SerialNumberAndLabelTellTokensApart) {
  EXPECT_TRUE(IsSameToken("1", "4711", "1", "4711"));
  EXPECT_FALSE(IsSameToken("1", "4711", "2", "4711"));
  EXPECT_FALSE(IsSameToken("1", "4711", "1", "4712"));
  EXPECT_FALSE(IsSameToken("", "4711", "", "4712"));
}

TEST(SameTokenTest, ASerialNumberInFrontOfTheLabelMakesNoOtherToken) {
  EXPECT_TRUE(IsSameToken("12", " My card", "12", "12 My card"));
  EXPECT_TRUE(IsSameToken("12", "", "12", "12"));
  const std::string label = "A label of thirty-two characters";
  EXPECT_TRUE(IsSameToken("12", label, "12", ("12 " + label).substr(0, 32)));
  EXPECT_FALSE(IsSameToken("12", " My card", "12", "12 Your card"));
}

}  // namespace
}  // namespace kelvrin::modulecheck
