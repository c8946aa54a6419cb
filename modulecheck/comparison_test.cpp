#include "modulecheck/comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

SlotListing Slot(const std::string& label, const std::string& serial) {
  SlotListing slot;
  slot.reader_name = "Reader of " + label;
  slot.label = label;
  slot.serial = serial;
  return slot;
}

Listing Of(std::vector<SlotListing> slots, bool is_fallback = false) {
  Listing listing;
  listing.slots = std::move(slots);
  listing.is_fallback = is_fallback;
  listing.judged = 1;
  return listing;
}

TEST(ComparisonTest, AReaderNameThatFitsIsNothingToWarnOf) {
  const Listing listing = Of({Slot("4711", "1")});
  EXPECT_THAT(FallbackWarnings("Reader", &listing, &listing, false), IsEmpty());
  EXPECT_THAT(FallbackWarnings("Reader", nullptr, nullptr, false), IsEmpty());
}

TEST(ComparisonTest, TheLastSlotIsNamedWhereverItWouldBeTaken) {
  const Listing fallback = Of({Slot("4711", "1"), Slot("4712", "2")}, true);
  const Listing other = Of({Slot("4711", "1")});
  const auto last = AllOf(HasSubstr("contains \"Typo\""), HasSubstr("LAST slot"),
                          HasSubstr("\"Reader of 4712\""));
  EXPECT_THAT(FallbackWarnings("Typo", &fallback, nullptr, false), ElementsAre(last));
  EXPECT_THAT(FallbackWarnings("Typo", &fallback, nullptr, true), ElementsAre(last));
  EXPECT_THAT(FallbackWarnings("Typo", &other, &fallback, false),
              ElementsAre(AllOf(last, HasSubstr("behind the adapter"))));
  EXPECT_THAT(FallbackWarnings("Typo", &fallback, &fallback, true).size(), 2u);
}

TEST(ComparisonTest, TheAdapterTakesTheFirstSlotUnlessKeysChooseIt) {
  const Listing fallback = Of({Slot("4711", "1"), Slot("4712", "2")}, true);
  const Listing shown = Of({Slot("4711", "1")});
  EXPECT_THAT(FallbackWarnings("Typo", &fallback, &shown, false),
              ElementsAre(HasSubstr("LAST slot"), HasSubstr("the adapter takes the FIRST slot")));
  EXPECT_THAT(FallbackWarnings("Typo", &fallback, &shown, true),
              ElementsAre(HasSubstr("LAST slot")));
}

TEST(ComparisonTest, SerialNumberAndLabelTellTokensApart) {
  EXPECT_TRUE(IsSameToken(Slot("4711", "1"), Slot("4711", "1")));
  EXPECT_FALSE(IsSameToken(Slot("4711", "1"), Slot("4711", "2")));
  EXPECT_FALSE(IsSameToken(Slot("4711", "1"), Slot("4712", "1")));
  EXPECT_FALSE(IsSameToken(Slot("4711", ""), Slot("4712", "")));
}

TEST(ComparisonTest, ASerialNumberInFrontOfTheLabelMakesNoOtherToken) {
  EXPECT_TRUE(IsSameToken(Slot(" My card", "12"), Slot("12 My card", "12")));
  EXPECT_TRUE(IsSameToken(Slot("", "12"), Slot("12", "12")));
  const std::string label = "A label of thirty-two characters";
  ASSERT_EQ(label.size(), 32u);
  EXPECT_TRUE(IsSameToken(Slot(label, "12"), Slot(("12 " + label).substr(0, 32), "12")));
  EXPECT_FALSE(IsSameToken(Slot(" My card", "12"), Slot("12 Your card", "12")));
}

TEST(ComparisonTest, TwoTokensAreBothNamed) {
  const Listing one = Of({Slot("4711", "1")});
  const Listing other = Of({Slot("4711", "2")});
  EXPECT_THAT(AnotherTokenWarning(&one, &other),
              AllOf(HasSubstr("as it is the token \"4711\", serial number \"1\""),
                    HasSubstr("behind the adapter the token \"4711\", serial number \"2\"")));
  EXPECT_EQ(AnotherTokenWarning(&one, &one), "");
  EXPECT_EQ(AnotherTokenWarning(&one, nullptr), "");
  Listing none = other;
  none.judged = 0;
  EXPECT_EQ(AnotherTokenWarning(&one, &none), "");
}

}  // namespace
}  // namespace kelvrin::modulecheck
