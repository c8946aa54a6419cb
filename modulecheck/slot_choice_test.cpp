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

const std::vector<std::string> kThree = {Padded("Reader A"), Padded("Reader B"),
                                         Padded("Reader A B")};

void Expect(const SlotChoice& choice, Choice expected, std::size_t index) {
  EXPECT_EQ(choice.choice, expected);
  EXPECT_EQ(choice.index, index);
}

TEST(SlotChoiceTest, TheFirstDescriptionThatContainsTheNameWins) {
  Expect(ChooseSlot(kThree, "Reader B"), Choice::kMatch, 1);
  Expect(ChooseSlot(kThree, "B"), Choice::kMatch, 1);
  Expect(ChooseSlot(kThree, "A B"), Choice::kMatch, 2);
}

TEST(SlotChoiceTest, CaseAndBlanksCountAndThePaddingTakesPart) {
  Expect(ChooseSlot(kThree, "reader b"), Choice::kFallback, 2);
  Expect(ChooseSlot(kThree, "Reader B  "), Choice::kMatch, 1);
}

TEST(SlotChoiceTest, WithoutAMatchTheLastSlotIsTaken) {
  Expect(ChooseSlot(kThree, "Reader C"), Choice::kFallback, 2);
  Expect(ChooseSlot(std::span(kThree).first(1), "Reader C"), Choice::kFallback, 0);
}

TEST(SlotChoiceTest, WithoutANameOnlyASingleSlotIsTaken) {
  Expect(ChooseSlot(std::span(kThree).first(1), ""), Choice::kOnlySlot, 0);
  Expect(ChooseSlot(kThree, ""), Choice::kRefused, 0);
}

TEST(SlotChoiceTest, WithoutASlotNoneIsTaken) {
  Expect(ChooseSlot({}, "Reader A"), Choice::kNoSlot, 0);
  Expect(ChooseSlot({}, ""), Choice::kNoSlot, 0);
}

TEST(SlotChoiceTest, WhatLiesBehindANulIsNotSearched) {
  const std::vector<std::string> slots = {Padded(std::string("Reader\0Other", 12), '\0')};
  Expect(ChooseSlot(slots, "Reader"), Choice::kMatch, 0);
  Expect(ChooseSlot(slots, "Other"), Choice::kFallback, 0);
  Expect(ChooseSlot(slots, "Reader "), Choice::kFallback, 0);
}

}  // namespace
}  // namespace kelvrin::modulecheck
