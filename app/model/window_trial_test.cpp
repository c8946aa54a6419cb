// A key is tried while cards come and go.
#include <gmock/gmock.h>

#include "app/model/testing/opened_window.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;

class WindowTrialTest : public OpenedWindow {
 protected:
  WindowTrialTest() {
    system_.Insert("1", "Reader 1",
                   {RsaCertificate("Ann"), EcCertificate("Bob"), KeylessCertificate("CA")});
  }

  // Lets the running scheme fail with an error of the token.
  void Fail(int64_t code) {
    EXPECT_TRUE(system_.Answer(
        Attempt{.end = Attempt::End::kFailed, .domain = "CryptoTokenKit", .code = code}));
  }
  void Work() { EXPECT_TRUE(system_.Answer(Attempt{})); }
  void PullWithoutNotice() {
    system_.presence.tokens.clear();
    system_.presence.readers[0].state = SlotState::kEmpty;
  }
};

TEST_F(WindowTrialTest, TriesWhatIsSelected) {
  model_->Select(1);
  const int before = changes_;
  model_->Try();
  EXPECT_EQ(changes_, before + 1);
  EXPECT_THAT(system_.schemes(), ElementsAre(Scheme::kEcdsa));
  ASSERT_NE(model_->trial(), nullptr);
  EXPECT_EQ(model_->trial()->certificate().name, "Bob");
  Work();
  EXPECT_EQ(changes_, before + 2);
  EXPECT_EQ(verdict(), Verdict::kWorked);
}

TEST_F(WindowTrialTest, NotWithoutAKeyAndNotTwiceAtOnce) {
  model_->Select(2);
  model_->Try();
  EXPECT_EQ(model_->trial(), nullptr);
  model_->Select(0);
  model_->Try();
  model_->Try();
  EXPECT_THAT(system_.schemes(), ElementsAre(Scheme::kPkcs1));
}

TEST_F(WindowTrialTest, AgainAfterItHasEnded) {
  model_->Select(1);
  model_->Try();
  Fail(-5);
  EXPECT_EQ(verdict(), Verdict::kPinRefused);
  model_->Try();
  EXPECT_EQ(verdict(), std::nullopt);
  Work();
  EXPECT_EQ(verdict(), Verdict::kWorked);
}

TEST_F(WindowTrialTest, Cancelled) {
  model_->CancelTrial();
  EXPECT_EQ(model_->trial(), nullptr);
  model_->Try();
  model_->CancelTrial();
  EXPECT_EQ(verdict(), Verdict::kCancelled);
  EXPECT_FALSE(system_.Answer(Attempt{}));
}

TEST_F(WindowTrialTest, CancellingWhatHasEndedKeepsItsVerdict) {
  model_->Select(1);
  model_->Try();
  Work();
  model_->CancelTrial();
  EXPECT_EQ(verdict(), Verdict::kWorked);
}

TEST_F(WindowTrialTest, TheCardIsPulledInTheMiddle) {
  model_->Try();
  Work();
  system_.Pull("1");
  EXPECT_EQ(verdict(), Verdict::kCardGone);
  EXPECT_EQ(model_->trial()->done(), 1U);
  EXPECT_FALSE(system_.Answer(Attempt{})) << "nobody waits for the second scheme";
  EXPECT_EQ(state(), State::kLooking) << "pluginkit has not answered";
}

TEST_F(WindowTrialTest, AnotherCardIsPulledInTheMiddle) {
  system_.Insert("2", "Reader 2", {RsaCertificate("Dora")});
  model_->Try();
  system_.Pull("2");
  EXPECT_EQ(verdict(), std::nullopt);
  Work();
}

// The failure comes first, and the system knows already that the card has gone.
TEST_F(WindowTrialTest, APulledCardThatFailsForAnotherReason) {
  for (const int64_t code : {-2, -3}) {
    model_->Try();
    PullWithoutNotice();
    Fail(code);
    EXPECT_EQ(verdict(), Verdict::kCardGone) << code;
    EXPECT_EQ(model_->selected(), nullptr);
    system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  }
}

// The failure comes first, and the watcher's notice a moment later.
TEST_F(WindowTrialTest, APulledCardThatIsMissedAfterItsFailure) {
  for (const int64_t code : {-2, -3}) {
    model_->Try();
    Fail(code);
    EXPECT_EQ(verdict(), code == -2 ? Verdict::kNoReason : Verdict::kFailed);
    system_.now += 2;
    system_.Pull("1");
    EXPECT_EQ(verdict(), Verdict::kCardGone) << code;
    system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  }
}

TEST_F(WindowTrialTest, ACardThatIsPulledLaterHasFailedForItsOwnReason) {
  model_->Try();
  Fail(-3);
  system_.now += 3;
  system_.Pull("1");
  EXPECT_EQ(verdict(), Verdict::kFailed);
}

TEST_F(WindowTrialTest, ARefusedPinStaysThatWhenTheCardIsPulled) {
  model_->Try();
  Fail(-5);
  system_.Pull("1");
  EXPECT_EQ(verdict(), Verdict::kPinRefused);
}

TEST_F(WindowTrialTest, SelectingAnotherKeepsARunningTrialAndDropsAnEndedOne) {
  model_->Try();
  model_->Select(1);
  ASSERT_NE(model_->trial(), nullptr);
  EXPECT_EQ(model_->trial()->certificate().name, "Ann");
  Fail(-5);
  EXPECT_EQ(verdict(), Verdict::kPinRefused);
  model_->Select(0);
  EXPECT_EQ(verdict(), Verdict::kPinRefused) << "it is this one's";
  model_->Select(1);
  EXPECT_EQ(model_->trial(), nullptr);
}

// Otherwise "It works" would stand beside another card's certificate.
TEST_F(WindowTrialTest, AnEndedTrialGoesWhenAnotherCardsCertificateTakesItsPlace) {
  model_->Select(1);
  model_->Try();
  Work();
  system_.Pull("1");
  EXPECT_EQ(verdict(), Verdict::kWorked) << "nothing else is selected";
  system_.Insert("2", "Reader 1", {RsaCertificate("Dora")});
  EXPECT_EQ(selected(), "Dora");
  EXPECT_EQ(model_->trial(), nullptr);
}

TEST_F(WindowTrialTest, ThatACardWasPulledIsStillSaidWhenAnotherTakesItsPlace) {
  system_.Insert("2", "Reader 2", {RsaCertificate("Dora")});
  model_->Try();
  system_.Pull("1");
  EXPECT_EQ(selected(), "Dora");
  EXPECT_EQ(verdict(), Verdict::kCardGone);
  system_.Change();
  EXPECT_EQ(verdict(), Verdict::kCardGone);
}

TEST_F(WindowTrialTest, ARunningTrialStaysWhenAnotherCardComes) {
  model_->Try();
  system_.Insert("2", "Reader 2", {RsaCertificate("Dora")});
  EXPECT_EQ(selected(), "Ann");
  Work();
  EXPECT_EQ(model_->trial()->done(), 1U);
}

// What is tried is selected from then on, though it was only the first in place of another.
TEST_F(WindowTrialTest, WhatIsTriedStaysSelected) {
  system_.Insert("2", "Reader 2", {RsaCertificate("Dora")});
  model_->Select(3);
  system_.Pull("2");
  EXPECT_EQ(selected(), "Ann");
  model_->Try();
  system_.Insert("2", "Reader 2", {RsaCertificate("Dora")});
  EXPECT_EQ(selected(), "Ann");
}

// A table that is filled anew may select another row.
TEST_F(WindowTrialTest, AViewThatSelectsAnotherOneAsSoonAsItHasFailed) {
  model_->Try();
  when_changed_ = [this] {
    when_changed_ = nullptr;
    model_->Select(1);
  };
  Fail(-3);
  EXPECT_EQ(selected(), "Bob");
  EXPECT_EQ(model_->trial(), nullptr);
}

}  // namespace
}  // namespace kelvrin::app
