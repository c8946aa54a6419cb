// Which slot a bring-up chooses.
#include "tests/module/bringup_fixture.h"
#include "tests/module/dirty_stack.h"

namespace {

using scripted::Effect;
using scripted::Function;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

class ReaderChoiceTest : public scripted::BringupTest {
 protected:
  // The slots whose description was asked for.
  std::vector<CK_SLOT_ID> Walked() {
    std::vector<CK_SLOT_ID> slots;
    for (const scripted::Call& call : module_.calls()) {
      if (call.function == Function::C_GetSlotInfo) slots.push_back(call.arguments[0].number);
    }
    return slots;
  }
  bool SaidFound() {
    return testing::Value(Log(), Contains(StartsWith("default: Kartenlesername")));
  }
};

TEST_F(ReaderChoiceTest, SeveralSlotsNeedAName) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init(""), 0x903u);
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 2 Slot(s) gefunden.\n",
                          "error: Kartenlesername nicht definiert."));
  EXPECT_THAT(module_.Names(), ElementsAre("C_Initialize", "C_GetSlotList", "C_GetSlotList"));
  EXPECT_EQ(session_, kUntouched);
}

TEST_F(ReaderChoiceTest, NullNameIsAnEmptyOne) {
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init(nullptr), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init(nullptr), 0x903u);
}

TEST_F(ReaderChoiceTest, OneSlotAndNoNameNeedsNoSearch) {
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  EXPECT_THAT(Walked(), ElementsAre());
  EXPECT_FALSE(SaidFound());
}

TEST_F(ReaderChoiceTest, OneSlotIsTakenWithoutAWordWhenTheNameDoesNotOccur) {
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_Initialize(NULL)", "C_GetSlotList(0, NULL[0])",
                                           "C_GetSlotList(0, room[1])", "C_GetSlotInfo(5, out)",
                                           "C_OpenSession(5, 6, NULL, NULL, out)"));
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 1 Slot(s) gefunden.\n",
                          "default: Session erfolgreich initialisiert."));
}

TEST_F(ReaderChoiceTest, FirstMatchInListOrderWins) {
  card_.AddSlot(7, "Reader A");
  card_.AddSlot(5, "Reader B");
  card_.AddSlot(6, "Reader A B");
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  EXPECT_THAT(Walked(), ElementsAre(7, 5));
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 3 Slot(s) gefunden.\n",
                          "default: Kartenlesername 'Reader B' gefunden.",
                          "default: Session erfolgreich initialisiert."));
  EXPECT_EQ(module_.Texts().back(), "C_OpenSession(5, 6, NULL, NULL, out)");
}

TEST_F(ReaderChoiceTest, SlotIsTheOneAtHandWhileTheWalkRuns) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  std::vector<CK_SLOT_ID> at_hand;
  module_.Observe([&](const scripted::Call& call) {
    if (call.function == Function::C_GetSlotInfo) at_hand.push_back(slot_);
  });
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_THAT(at_hand, ElementsAre(5u, 6u));
}

TEST_F(ReaderChoiceTest, FoundLineShowsTheConfiguredNamePublicly) {
  card_.AddSlot(5, "Reader B 00 00");
  EXPECT_EQ(Init("der B"), CKR_OK);
  EXPECT_THAT(PublicLog(), Contains("default: Kartenlesername 'der B' gefunden."));
}

TEST_F(ReaderChoiceTest, PartOfTheDescriptionIsEnough) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  card_.AddSlot(7, "Reader C");
  EXPECT_EQ(Init("B"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_TRUE(SaidFound());
}

TEST_F(ReaderChoiceTest, PaddingTakesPartAndNothingIsFoldedOrTrimmed) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init("A   "), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  EXPECT_TRUE(SaidFound());
  recorder_.clear();
  EXPECT_EQ(Init("reader a"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_EQ(Init(" Reader A"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_FALSE(SaidFound());
}

TEST_F(ReaderChoiceTest, NoMatchFallsBackToTheLastSlotWithoutAWord) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init("Reader C"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_THAT(Walked(), ElementsAre(5, 6));
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 2 Slot(s) gefunden.\n",
                          "default: Session erfolgreich initialisiert."));
}

TEST_F(ReaderChoiceTest, FailedSlotInfoIsLoggedTwiceAndTheSearchGoesOn) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  card_.AddSlot(7, "Reader C");
  module_.ReturnOnce(Function::C_GetSlotInfo, CKR_DEVICE_ERROR);
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 3 Slot(s) gefunden.\n",
                          "error: PKCS11 function C_GetSlotInfo failed: rv = CKR_DEVICE_ERROR "
                          "(0x30)",
                          "error: PKCS11 function get_reader_name failed: rv = CKR_DEVICE_ERROR "
                          "(0x30)",
                          "default: Kartenlesername 'Reader B' gefunden.",
                          "default: Session erfolgreich initialisiert."));
}

TEST_F(ReaderChoiceTest, DescriptionOfAFailedCallIsTestedAllTheSame) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  module_.ReturnOnce(Function::C_GetSlotInfo, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Init("Reader A"), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  EXPECT_TRUE(SaidFound());
}

TEST_F(ReaderChoiceTest, FailedCallDoesNotShowTheSlotBefore) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  card_.AddSlot(7, "Reader C");
  module_.ReturnAt(Function::C_GetSlotInfo, 2, CKR_DEVICE_ERROR);
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_EQ(slot_, 7u);
  EXPECT_FALSE(SaidFound());
}

TEST_F(ReaderChoiceTest, SearchSeesTheWholeDescriptionAndNothingBehindIt) {
  card_.AddSlot(5, std::string(63, 'x') + "y");
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init("xy"), CKR_OK);
  EXPECT_EQ(slot_, 5u);
  recorder_.clear();
  // The manufacturer's name follows in the record.
  EXPECT_EQ(Init("yScripted"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_EQ(Init("Scripted"), CKR_OK);
  EXPECT_EQ(Init("y "), CKR_OK);
  EXPECT_FALSE(SaidFound());
}

TEST_F(ReaderChoiceTest, NothingFollowsAFullDescription) {
  card_.AddSlot(5, std::string(63, 'x') + "y");
  card_.AddSlot(6, "Reader B");
  scripted::DirtyStack();  // with '?'
  EXPECT_EQ(Init("y?"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_FALSE(SaidFound());
}

TEST_F(ReaderChoiceTest, NulInsideTheDescriptionEndsTheSearch) {
  card_.AddSlot(5, std::string("Reader A\0 Contactless", 21));
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init("Contactless"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_FALSE(SaidFound());
  EXPECT_EQ(Init("Reader A"), CKR_OK);
  EXPECT_EQ(slot_, 5u);
}

TEST_F(ReaderChoiceTest, SlotZeroIsASlotLikeAnyOther) {
  card_.AddSlot(0, "Reader A");
  card_.AddSlot(1, "Reader B");
  EXPECT_EQ(Init("Reader A"), CKR_OK);
  EXPECT_EQ(slot_, 0u);
}

TEST_F(ReaderChoiceTest, WalkStaysWithinTheEntriesAllocated) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  card_.slot_list_answers = {{CKR_OK, 2}, {CKR_BUFFER_TOO_SMALL, 40}};
  EXPECT_EQ(Init("Reader B"), 0x902u);
  EXPECT_THAT(Walked(), ElementsAre(0, 0));  // the array was left zero-filled
  EXPECT_THAT(Log(), Contains("default: 40 Slot(s) gefunden.\n"));
}

TEST_F(ReaderChoiceTest, LastEntryIsTheLastAllocatedOne) {
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  card_.slot_list_answers = {{CKR_OK, 2}, {CKR_OK, 3, {5, 6, 7}}};
  EXPECT_EQ(Init("Reader X"), CKR_OK);
  EXPECT_THAT(Walked(), ElementsAre(5, 6));
  EXPECT_EQ(slot_, 6u);
  EXPECT_THAT(Log(), Contains("default: 3 Slot(s) gefunden.\n"));
}

TEST_F(ReaderChoiceTest, FewerSlotsInTheSecondAnswerEndTheWalkEarlier) {
  card_.AddSlot(5, "Reader A");
  card_.slot_list_answers = {{CKR_OK, 3}, {CKR_OK, 1, {5}}};
  EXPECT_EQ(Init("Reader X"), CKR_OK);
  EXPECT_THAT(Walked(), ElementsAre(5));
  EXPECT_THAT(Log(), Contains("default: 1 Slot(s) gefunden.\n"));
}

TEST_F(ReaderChoiceTest, SlotsThatComeLateHaveNoEntry) {
  card_.AddSlot(0, "Reader A");
  wrapped::calls().empty_calloc_is_null = true;
  card_.slot_list_answers = {{CKR_OK, 0}, {CKR_BUFFER_TOO_SMALL, 1}};
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_EQ(slot_, 0u);
  card_.slot_list_answers = {{CKR_OK, 0}, {CKR_BUFFER_TOO_SMALL, 1}};
  EXPECT_EQ(Init("Reader A"), CKR_OK);
  EXPECT_EQ(slot_, 0u);
  EXPECT_THAT(Walked(), ElementsAre());
  card_.slot_list_answers = {{CKR_OK, 0}, {CKR_BUFFER_TOO_SMALL, 2}};
  EXPECT_EQ(Init(""), 0x903u);
}

TEST_F(ReaderChoiceTest, CountIsTakenAsA32BitInteger) {
  card_.AddSlot(0, "Reader A");
  card_.slot_list_answers = {{CKR_OK, 1}, {CKR_OK, 0x80000001, {0}}};
  EXPECT_EQ(Init("Reader A"), CKR_OK);
  EXPECT_THAT(Walked(), ElementsAre());
  EXPECT_EQ(slot_, 0u);
  EXPECT_THAT(Log(), Contains("default: -2147483647 Slot(s) gefunden.\n"));
}

TEST_F(ReaderChoiceTest, OnlyTheWalkAndTheLineTakeTheCountAs32Bits) {
  card_.AddSlot(5, "Reader A");
  card_.slot_list_answers = {{CKR_OK, 1}, {CKR_OK, 0x100000000, {5}}};
  EXPECT_EQ(Init(""), 0x903u);
  card_.slot_list_answers = {{CKR_OK, 1}, {CKR_OK, 0x80000001, {5}}};
  EXPECT_EQ(Init(""), 0x903u);
}

}  // namespace
