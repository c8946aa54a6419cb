#include "app/model/situation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "app/model/testing/scripted_system.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Everything is well, but there is neither a reader nor a card.
class SituationTest : public testing::Test {
 protected:
  SituationTest() { registration_ = {.is_known = true, .is_on = true, .paths = {here_.extension}}; }

  Situation Now() const {
    return Decide({.installation = here_,
                   .registration = registration_ ? &*registration_ : nullptr,
                   .presence = presence_,
                   .cards = cards_,
                   .is_reading = is_reading_,
                   .is_waiting = is_waiting_});
  }
  State StateNow() const { return Now().state; }
  void PutCard() { presence_.readers = {{"Reader 1", SlotState::kCard}}; }
  void HaveToken() { cards_ = {{here_.class_id + ":4711", "4711", "Reader 1", 2, 1}}; }
  void HaveOtherCopy() {
    registration_->paths.push_back("/Volumes/Old/Old.app/Contents/PlugIns/Old.appex");
  }

  Installation here_ = ScriptedSystem().here;
  std::optional<Registration> registration_;
  Presence presence_;
  std::vector<Card> cards_;
  bool is_reading_ = false;
  bool is_waiting_ = false;
};

TEST_F(SituationTest, WithoutTheExtensionNothingElseMatters) {
  here_.extension.clear();
  here_.application = "/Users/ann/Downloads/KelvrinToken.app";
  HaveToken();
  EXPECT_EQ(StateNow(), State::kNoExtension);
}

TEST_F(SituationTest, AnApplicationThatCannotStayComesBeforeItsCards) {
  here_.application = "/Users/ann/Downloads/KelvrinToken.app";
  HaveToken();
  EXPECT_EQ(StateNow(), State::kNotInApplications);
  here_.application = "/Users/ann/Applications/KelvrinToken.app";
  EXPECT_EQ(StateNow(), State::kReady);
}

TEST_F(SituationTest, ACardThatWorksIsReadyWhateverElseIsTheMatter) {
  HaveToken();
  PutCard();
  is_reading_ = is_waiting_ = true;
  HaveOtherCopy();
  registration_->is_on = false;
  EXPECT_EQ(StateNow(), State::kReady);
  registration_.reset();
  ASSERT_EQ(StateNow(), State::kReady);
  ASSERT_EQ(Now().cards.size(), 1U);
  EXPECT_EQ(Now().cards[0].number, "4711");
}

TEST_F(SituationTest, LooksUntilEverythingHasBeenRead) {
  registration_.reset();
  EXPECT_EQ(StateNow(), State::kLooking);
  EXPECT_EQ(Now().reader, "");
  is_reading_ = true;
  EXPECT_EQ(StateNow(), State::kLooking);
  registration_ = Registration{};
  EXPECT_EQ(StateNow(), State::kLooking);
}

TEST_F(SituationTest, NamesTheReaderWhoseCardIsBeingRead) {
  is_reading_ = true;
  presence_.readers = {{"Reader 0", SlotState::kEmpty}, {"Reader 1", SlotState::kCard}};
  EXPECT_EQ(StateNow(), State::kLooking);
  EXPECT_EQ(Now().reader, "Reader 1");
}

TEST_F(SituationTest, OtherCopiesComeBeforeASwitch) {
  HaveOtherCopy();
  registration_->is_on = false;
  PutCard();
  EXPECT_EQ(StateNow(), State::kSeveralCopies);
  EXPECT_THAT(Now().copies, ElementsAre("/Volumes/Old/Old.app"));
}

TEST_F(SituationTest, OneOtherCopyAloneIsOneTooMany) {
  registration_->paths = {"/Volumes/Old/Old.appex"};
  EXPECT_EQ(StateNow(), State::kSeveralCopies);
}

TEST_F(SituationTest, OneCopyThatIsRegisteredTwiceIsOne) {
  registration_->paths.push_back(here_.extension);
  EXPECT_EQ(StateNow(), State::kNoReader);
}

TEST_F(SituationTest, AnExtensionThatIsNotRegisteredOrNotOn) {
  PutCard();
  registration_->is_on = false;
  EXPECT_EQ(StateNow(), State::kSwitchedOff);
  EXPECT_THAT(Now().copies, IsEmpty());
  registration_->paths.clear();
  EXPECT_EQ(StateNow(), State::kNotRegistered);
}

TEST_F(SituationTest, WherePluginkitFailsTheReadersAreLookedAt) {
  registration_ = Registration{};
  EXPECT_EQ(StateNow(), State::kNoReader);
}

TEST_F(SituationTest, ReadersThatMayNotBeSeen) {
  PutCard();
  presence_.shows_readers = false;
  EXPECT_EQ(StateNow(), State::kReadersHidden);
}

TEST_F(SituationTest, NoReaderAndNoCard) {
  EXPECT_EQ(StateNow(), State::kNoReader);
  presence_.readers = {{"Reader 1", SlotState::kEmpty}, {"Reader 2", SlotState::kEmpty}};
  EXPECT_EQ(StateNow(), State::kNoCard);
}

TEST_F(SituationTest, ACardThatIsBeingLookedAt) {
  presence_.readers = {{"Reader 1", SlotState::kEmpty}, {"Reader 2", SlotState::kProbing}};
  EXPECT_EQ(StateNow(), State::kLooking);
  EXPECT_EQ(Now().reader, "Reader 2");
}

TEST_F(SituationTest, ACardIsWaitedForBeforeItHasNoToken) {
  for (const SlotState state : {SlotState::kCard, SlotState::kMute}) {
    presence_.readers = {{"Reader 1", SlotState::kProbing}, {"Reader 2", state}};
    is_waiting_ = true;
    EXPECT_EQ(StateNow(), State::kLooking);
    EXPECT_EQ(Now().reader, "Reader 2");
    is_waiting_ = false;
    EXPECT_EQ(StateNow(), state == SlotState::kMute ? State::kMuteCard : State::kNoToken);
    EXPECT_EQ(Now().reader, "Reader 2");
  }
}

TEST_F(SituationTest, NamesAnotherExtensionsTokenOfThatReader) {
  PutCard();
  presence_.tokens = {{"com.apple.pivtoken:1", "Reader 2"}, {"com.apple.setoken:aks", ""}};
  EXPECT_EQ(Now().other_token, "");
  presence_.tokens.push_back({"com.example.other:2", "Reader 1"});
  EXPECT_EQ(StateNow(), State::kNoToken);
  EXPECT_EQ(Now().other_token, "com.example.other:2");
}

TEST_F(SituationTest, ATokenOfOursIsNotAnothers) {
  PutCard();
  presence_.tokens = {{here_.class_id + ":1", "Reader 1"}};
  EXPECT_EQ(Now().other_token, "");
}

TEST(NextStepTest, OneForEachState) {
  EXPECT_EQ(NextStepOf(State::kLooking), NextStep::kNone);
  EXPECT_EQ(NextStepOf(State::kNoExtension), NextStep::kShowGuide);
  EXPECT_EQ(NextStepOf(State::kNotInApplications), NextStep::kShowApplication);
  EXPECT_EQ(NextStepOf(State::kReady), NextStep::kShowGuide);
  EXPECT_EQ(NextStepOf(State::kSeveralCopies), NextStep::kShowCopy);
  EXPECT_EQ(NextStepOf(State::kNotRegistered), NextStep::kRegister);
  EXPECT_EQ(NextStepOf(State::kSwitchedOff), NextStep::kSwitchOn);
  EXPECT_EQ(NextStepOf(State::kReadersHidden), NextStep::kDiagnose);
  EXPECT_EQ(NextStepOf(State::kNoReader), NextStep::kShowGuide);
  EXPECT_EQ(NextStepOf(State::kNoCard), NextStep::kShowGuide);
  EXPECT_EQ(NextStepOf(State::kNothingUsable), NextStep::kDiagnose);
  EXPECT_EQ(NextStepOf(State::kNoToken), NextStep::kDiagnose);
}

TEST(TokenIdTest, OursBeginWithTheWholeClassId) {
  EXPECT_TRUE(IsOurs("org.kelvrin.token:4711", "org.kelvrin.token"));
  EXPECT_TRUE(IsOurs("org.kelvrin.token:47:11", "org.kelvrin.token"));
  EXPECT_TRUE(IsOurs("org.kelvrin.token:", "org.kelvrin.token"));
  EXPECT_FALSE(IsOurs("org.kelvrin.token", "org.kelvrin.token"));
  EXPECT_FALSE(IsOurs("org.kelvrin.token2:4711", "org.kelvrin.token"));
  EXPECT_FALSE(IsOurs("com.apple.setoken:org.kelvrin.token:1", "org.kelvrin.token"));
}

}  // namespace
}  // namespace kelvrin::app
