// Which certificate is selected.
#include <gmock/gmock.h>

#include "app/model/testing/opened_window.h"

namespace kelvrin::app {
namespace {

using WindowSelectionTest = OpenedWindow;

TEST_F(WindowSelectionTest, TheFirstOneAtFirst) {
  EXPECT_EQ(selected(), "none");
  EXPECT_EQ(model_->selection(), std::nullopt);
  model_->Select(0);
  EXPECT_EQ(selected(), "none");
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann"), RsaCertificate("Bob")});
  EXPECT_EQ(selected(), "Ann");
  EXPECT_EQ(model_->selection(), 0U);
}

TEST_F(WindowSelectionTest, SurvivesARefreshAndAReinsertion) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann"), RsaCertificate("Bob")});
  const int before = changes_;
  model_->Select(1);
  EXPECT_EQ(changes_, before + 1);
  system_.Change();
  EXPECT_EQ(selected(), "Bob");
  system_.Pull("1");
  EXPECT_EQ(selected(), "none");
  Certificate again = RsaCertificate("Bob");
  again.key_label = "read anew";
  system_.Insert("1", "Reader 1", {RsaCertificate("Carl"), RsaCertificate("Ann"), again});
  EXPECT_EQ(selected(), "Bob");
  EXPECT_EQ(model_->selected()->key_label, "read anew");
}

TEST_F(WindowSelectionTest, ReturnsToTheCardThatCameBack) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  system_.Insert("2", "Reader 2", {RsaCertificate("Bob")});
  model_->Select(1);
  system_.Pull("2");
  EXPECT_EQ(selected(), "Ann");
  system_.Insert("2", "Reader 2", {RsaCertificate("Bob")});
  EXPECT_EQ(selected(), "Bob");
}

TEST_F(WindowSelectionTest, TheSameCertificateOnAnotherCardIsNotSelected) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  system_.Insert("2", "Reader 2", {RsaCertificate("Bob"), RsaCertificate("Ann")});
  EXPECT_EQ(model_->selection(), 0U);
  system_.Pull("1");
  EXPECT_EQ(selected(), "Bob");
}

// The system tells its tokens in no order.
TEST_F(WindowSelectionTest, StaysWhereItWasWhenAnotherCardComesBeforeIt) {
  system_.Insert("2", "Reader 2", {RsaCertificate("Bob")});
  EXPECT_EQ(selected(), "Bob");
  system_.presence.tokens.insert(system_.presence.tokens.begin(), {system_.TokenId("1"), ""});
  system_.Change();
  system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  EXPECT_EQ(model_->certificates().at(0).name, "Ann");
  EXPECT_EQ(selected(), "Bob");
}

TEST_F(WindowSelectionTest, BeyondTheEndIsIgnored) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann"), RsaCertificate("Bob")});
  model_->Select(1);
  const int before = changes_;
  model_->Select(2);
  EXPECT_EQ(selected(), "Bob");
  EXPECT_EQ(changes_, before);
}

}  // namespace
}  // namespace kelvrin::app
