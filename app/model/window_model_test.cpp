// Readers, cards and answers come and go in every order.
#include "app/model/window_model.h"

#include <gmock/gmock.h>

#include "app/model/testing/opened_window.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using WindowModelTest = OpenedWindow;

TEST_F(WindowModelTest, LooksUntilPluginkitHasAnswered) {
  EXPECT_EQ(state(), State::kLooking);
  EXPECT_EQ(model_->registration(), nullptr);
  EXPECT_EQ(changes_, 0);
  system_.AnswerRegistered();
  EXPECT_EQ(state(), State::kNoReader);
  ASSERT_NE(model_->registration(), nullptr);
  EXPECT_TRUE(model_->registration()->is_on);
  EXPECT_EQ(changes_, 1);
}

TEST_F(WindowModelTest, ReaderInCardInCardOutReaderOut) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kEmpty}};
  system_.Change();
  EXPECT_EQ(state(), State::kNoCard);

  system_.presence.readers[0].state = SlotState::kProbing;
  system_.Change();
  EXPECT_EQ(state(), State::kLooking);
  EXPECT_EQ(model_->situation().reader, "Reader 1");

  system_.Insert("4711", "Reader 1", {RsaCertificate("Ann"), EcCertificate("Ann EC")});
  EXPECT_EQ(state(), State::kReady);
  ASSERT_EQ(model_->situation().cards.size(), 1U);
  const Card& card = model_->situation().cards[0];
  EXPECT_EQ(card.token_id, system_.TokenId("4711"));
  EXPECT_EQ(card.number, "4711");
  EXPECT_EQ(card.reader, "Reader 1");
  EXPECT_EQ(card.certificates, 2U);
  EXPECT_EQ(model_->ReaderOf(model_->certificates()[1]), "Reader 1");
  EXPECT_EQ(model_->presence().tokens.size(), 1U);

  system_.Pull("4711");
  EXPECT_EQ(state(), State::kNoCard);
  EXPECT_THAT(model_->certificates(), IsEmpty());
  system_.presence.readers.clear();
  system_.Change();
  EXPECT_EQ(state(), State::kNoReader);
}

TEST_F(WindowModelTest, ACardThatIsThereAlreadyWhenTheWindowOpens) {
  model_.reset();
  system_.presence.readers = {{"Reader 1", SlotState::kCard}};
  system_.presence.tokens = {{system_.TokenId("1"), "Reader 1"}};
  model_ = std::make_unique<WindowModel>(&system_, [this] { ++changes_; });
  EXPECT_EQ(state(), State::kLooking);
  system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  EXPECT_EQ(state(), State::kReady) << "pluginkit has not answered yet";
}

TEST_F(WindowModelTest, ACardPulledWhileItIsRead) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kCard}};
  system_.presence.tokens = {{system_.TokenId("1"), "Reader 1"}};
  system_.Change();
  EXPECT_EQ(state(), State::kLooking);
  EXPECT_EQ(model_->situation().reader, "Reader 1");
  system_.Pull("1");
  EXPECT_EQ(state(), State::kNoCard);
  EXPECT_FALSE(system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")})) << "not wanted";
  EXPECT_THAT(model_->certificates(), IsEmpty());

  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  EXPECT_EQ(state(), State::kReady);
  EXPECT_EQ(system_.readings(), 2U);
}

TEST_F(WindowModelTest, AWatcherThatReportsTwiceReadsOnce) {
  system_.presence.tokens = {{system_.TokenId("1"), ""}};
  system_.Change();
  system_.Change();
  system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  system_.Change();
  EXPECT_EQ(system_.readings(), 1U);
  EXPECT_THAT(names(), ElementsAre("Ann"));
}

TEST_F(WindowModelTest, ReinsertedWithOtherCertificates) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Old")});
  system_.Pull("1");
  system_.Insert("1", "Reader 1", {RsaCertificate("New")});
  EXPECT_THAT(names(), ElementsAre("New"));
}

// The keychain lists it, and then it is gone: the answer comes before the watcher's notice.
TEST_F(WindowModelTest, AnItemThatVanishesBetweenListingAndReading) {
  system_.AnswerRegistered();
  system_.Insert("1", "Reader 1", {});
  system_.LetTimePass();
  system_.Answer(system_.TokenId("1"), std::vector<Certificate>());
  EXPECT_EQ(state(), State::kNoCertificates);
  EXPECT_THAT(model_->certificates(), IsEmpty());
  EXPECT_EQ(model_->selected(), nullptr);
  EXPECT_EQ(model_->selection(), std::nullopt);
  model_->Try();
  EXPECT_EQ(model_->trial(), nullptr);
  system_.Pull("1");
  EXPECT_EQ(state(), State::kNoCard);
}

TEST_F(WindowModelTest, ItemsThatComeLaterThanTheirTokenAreReadAgain) {
  system_.AnswerRegistered();
  system_.Insert("1", "Reader 1", {});
  EXPECT_EQ(state(), State::kLooking);
  EXPECT_TRUE(system_.LetTimePass());
  system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  EXPECT_EQ(state(), State::kReady);
  EXPECT_EQ(system_.readings(), 2U);
}

TEST_F(WindowModelTest, ACardWhoseKeysCannotBeUsedIsNotReady) {
  Certificate expired = RsaCertificate("Ann");
  expired.not_after = system_.now - 1;
  system_.Insert("1", "Reader 1", {expired, KeylessCertificate("CA")});
  EXPECT_EQ(state(), State::kNothingUsable);
  EXPECT_EQ(model_->situation().cards.front().certificates, 2U);
  system_.Insert("2", "Reader 2", {EcCertificate("Bob")});
  EXPECT_EQ(state(), State::kReady);
}

TEST_F(WindowModelTest, ACardPulledBeforeItsItemsCameIsReadNoMore) {
  system_.AnswerRegistered();
  system_.Insert("1", "Reader 1", {});
  system_.Pull("1");
  while (system_.LetTimePass()) {
  }
  EXPECT_EQ(system_.readings(), 1U);
}

TEST_F(WindowModelTest, TwoTokensOfWhichOneGoes) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  system_.Insert("2", "Reader 2", {RsaCertificate("Bob"), EcCertificate("Bob EC")});
  EXPECT_THAT(names(), ElementsAre("Ann", "Bob", "Bob EC"));
  ASSERT_EQ(model_->situation().cards.size(), 2U);
  EXPECT_EQ(model_->ReaderOf(model_->certificates()[2]), "Reader 2");
  const Certificate ann = model_->certificates()[0];
  system_.Pull("1");
  EXPECT_THAT(names(), ElementsAre("Bob", "Bob EC"));
  ASSERT_EQ(model_->situation().cards.size(), 1U);
  EXPECT_EQ(model_->situation().cards[0].number, "2");
  EXPECT_EQ(model_->ReaderOf(ann), "");
}

TEST_F(WindowModelTest, OfTwoCardsTheOneThatIsReadIsReady) {
  system_.presence.tokens = {{system_.TokenId("1"), "Reader 1"},
                             {system_.TokenId("2"), "Reader 2"}};
  system_.Change();
  EXPECT_TRUE(system_.Answer(system_.TokenId("2"), {RsaCertificate("Bob")}));
  EXPECT_EQ(state(), State::kReady);
  EXPECT_THAT(names(), ElementsAre("Bob"));
  EXPECT_TRUE(system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")}));
  EXPECT_THAT(names(), ElementsAre("Ann", "Bob")) << "in the order of the tokens";
}

TEST_F(WindowModelTest, OtherExtensionsTokensAreNotRead) {
  system_.presence.tokens = {{"com.apple.setoken:aks", ""}, {system_.here.class_id + "2:1", ""}};
  system_.Change();
  EXPECT_EQ(system_.readings(), 0U);
}

TEST_F(WindowModelTest, TheOnlyReaderWithACardIsTheTokensWhereTheSystemDoesNotTell) {
  system_.presence.readers = {{"Reader 1", SlotState::kEmpty}, {"Reader 2", SlotState::kCard}};
  system_.presence.tokens = {{system_.TokenId("1"), ""}};
  system_.Change();
  system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  EXPECT_EQ(model_->situation().cards.at(0).reader, "Reader 2");
  system_.presence.readers[0].state = SlotState::kCard;
  system_.Change();
  EXPECT_EQ(model_->situation().cards.at(0).reader, "");
}

TEST_F(WindowModelTest, TheReaderIsKnownWhateverTheSentenceSays) {
  model_.reset();
  system_.here.application = "/Users/ann/Downloads/KelvrinToken.app";
  model_ = std::make_unique<WindowModel>(&system_, [] {});
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  EXPECT_EQ(state(), State::kNotInApplications);
  EXPECT_EQ(model_->ReaderOf(model_->certificates().at(0)), "Reader 1");
}

TEST_F(WindowModelTest, ACardHasNoTokenOnlyAfterTheWait) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kCard}};
  system_.Change();
  EXPECT_EQ(state(), State::kLooking);
  system_.Change();
  EXPECT_EQ(state(), State::kLooking);
  const int before = changes_;
  EXPECT_TRUE(system_.LetTimePass());
  EXPECT_EQ(state(), State::kNoToken);
  EXPECT_EQ(changes_, before + 1);
  system_.Change();
  EXPECT_EQ(state(), State::kNoToken) << "it has not just come";
  EXPECT_FALSE(system_.LetTimePass());
}

TEST_F(WindowModelTest, EachCardIsWaitedForAnew) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kCard}, {"Reader 2", SlotState::kEmpty}};
  system_.Change();
  system_.LetTimePass();
  EXPECT_EQ(state(), State::kNoToken);
  system_.presence.readers[1].state = SlotState::kCard;
  system_.Change();
  EXPECT_EQ(state(), State::kLooking);
  system_.LetTimePass();
  EXPECT_EQ(state(), State::kNoToken);

  system_.presence.readers[0].state = SlotState::kEmpty;
  system_.Change();
  EXPECT_EQ(state(), State::kNoToken);
  system_.presence.readers[0].state = SlotState::kCard;
  system_.Change();
  EXPECT_EQ(state(), State::kLooking) << "pulled and inserted again";
}

TEST_F(WindowModelTest, ATokenThatComesAfterTheWaitIsReady) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kCard}};
  system_.Change();
  system_.LetTimePass();
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  EXPECT_EQ(state(), State::kReady);
}

TEST_F(WindowModelTest, FortyCertificates) {
  std::vector<Certificate> forty;
  std::vector<std::string> expected;
  for (int i = 0; i < 40; ++i) {
    expected.push_back("Certificate " + std::to_string(i));
    forty.push_back(i % 2 == 0 ? RsaCertificate(expected.back()) : EcCertificate(expected.back()));
  }
  system_.Insert("1", "Reader 1", forty);
  EXPECT_EQ(names(), expected);
  EXPECT_EQ(model_->situation().cards.at(0).certificates, 40U);
  model_->Select(39);
  system_.Change();
  EXPECT_EQ(model_->selection(), 39U);
}

TEST_F(WindowModelTest, LetsGoOfEverythingWhenItEnds) {
  system_.Insert("1", "Reader 1", {RsaCertificate("Ann")});
  system_.presence.tokens.push_back({system_.TokenId("2"), ""});
  system_.presence.readers.push_back({"Reader 2", SlotState::kCard});
  system_.Change();
  model_->Try();
  model_->Diagnose();
  EXPECT_EQ(system_.running().size(), 2U);
  model_.reset();
  const int before = changes_;
  EXPECT_FALSE(system_.is_observed());
  EXPECT_THAT(system_.running(), IsEmpty());
  EXPECT_FALSE(system_.Answer(system_.TokenId("2"), {RsaCertificate("Bob")}));
  EXPECT_FALSE(system_.Answer(Attempt{}));
  EXPECT_FALSE(system_.LetTimePass());
  EXPECT_EQ(changes_, before);
}

}  // namespace
}  // namespace kelvrin::app
