#include "app/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <sstream>

#include "app/model/export.h"
#include "app/model/testing/scripted_system.h"
#include "app/text/testing/strings_file.h"

namespace kelvrin::app {
namespace {

using Action = Options::Action;
using testing::EndsWith;
using testing::HasSubstr;

class ParseTest : public testing::Test {
 protected:
  std::optional<Options> Read(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "KelvrinToken");
    return Parse(static_cast<int>(arguments.size()), arguments.data(), &status_);
  }
  int status_ = -1;
};

TEST_F(ParseTest, WindowUnlessThereIsAnOptionOfOurs) {
  EXPECT_EQ(Read({})->action, Action::kWindow);
  EXPECT_EQ(Read({"-NSDocumentRevisionsDebugMode", "YES"})->action, Action::kWindow);
  EXPECT_EQ(Read({"-psn_0_12345"})->action, Action::kWindow);
}

TEST_F(ParseTest, OneActionEach) {
  EXPECT_EQ(Read({"--list"})->action, Action::kList);
  EXPECT_EQ(Read({"--report"})->action, Action::kReport);
  EXPECT_EQ(Read({"--ssh-key", "Ann Example"})->action, Action::kSshKey);
  EXPECT_EQ(Read({"--ssh-key", "Ann Example"})->label, "Ann Example");
}

TEST_F(ParseTest, HelpEndsWellAndWrongUsageWithTwo) {
  EXPECT_FALSE(Read({"--help"}).has_value());
  EXPECT_EQ(status_, 0);
  for (const std::vector<const char*>& wrong : std::vector<std::vector<const char*>>{
           {"--nothing"}, {"--list", "--report"}, {"--ssh-key"}, {"--list", "more"}}) {
    EXPECT_FALSE(Read(wrong).has_value());
    EXPECT_EQ(status_, 2) << wrong.front();
  }
}

// What happens while a command waits, in order.
class CommandsTest : public testing::Test {
 protected:
  int Run(Action action, const std::string& label = "") {
    const Await await = [this](const std::function<bool()>& holds) {
      while (!holds()) {
        ASSERT_FALSE(events_.empty()) << "waits for something that does not come";
        const std::function<void()> event = events_.front();
        events_.pop_front();
        event();
      }
    };
    return RunCommand({.action = action, .label = label}, &system_, English(), await, output_,
                      errors_);
  }
  // A card is there from the beginning.
  void CardComes(const std::vector<Certificate>& certificates) {
    events_.push_back([this, certificates] { system_.Insert("4711", "X", certificates); });
    TimePasses();
  }
  void TimePasses() {
    events_.push_back([this] { system_.LetTimePass(); });
  }

  ScriptedSystem system_;
  std::list<std::function<void()>> events_;
  std::ostringstream output_;
  std::ostringstream errors_;
};

TEST_F(CommandsTest, ListsACardAndItsCertificates) {
  CardComes({RsaCertificate("Ann"), EcCertificate("Bob")});
  EXPECT_EQ(Run(Action::kList), 0);
  EXPECT_THAT(output_.str(), HasSubstr("Card 4711 in reader X: 2 certificates"));
  EXPECT_THAT(output_.str(), HasSubstr("\nBob\n"));
}

TEST_F(CommandsTest, ACardThatIsToldOfLaterIsListedToo) {
  events_.push_back([this] { system_.Insert("1", "X", {RsaCertificate("Ann")}); });
  events_.push_back([this] { system_.Insert("2", "Y", {RsaCertificate("Bob")}); });
  TimePasses();
  EXPECT_EQ(Run(Action::kList), 0);
  EXPECT_THAT(output_.str(), HasSubstr("2 cards: 2 certificates"));
}

TEST_F(CommandsTest, ALookEndsWhateverDoesNotAnswer) {
  TimePasses();  // pluginkit has not answered
  TimePasses();
  EXPECT_EQ(Run(Action::kList), 1);
  EXPECT_THAT(output_.str(), HasSubstr("Looking for readers and cards"));
}

TEST_F(CommandsTest, WhatWouldSteerATerminalIsNotPrinted) {
  CardComes({RsaCertificate("Ann\033[2J\u009B1mé\x7F")});
  EXPECT_EQ(Run(Action::kList), 0);
  EXPECT_THAT(output_.str(), HasSubstr("\nAnn?[2J?1mé?\n"));
  output_.str("");
  TimePasses();
  events_.push_back(
      [this] { system_.Answer(system_.TokenId("4711"), {RsaCertificate("\u009B")}); });
  EXPECT_EQ(Run(Action::kSshKey, "\u009B"), 0);
  EXPECT_THAT(output_.str(), EndsWith(" ?\n"));
}

TEST_F(CommandsTest, WaitsForTheSecondOfTwoCards) {
  TimePasses();
  events_.push_back([this] {
    system_.presence.tokens = {{system_.TokenId("1"), "X"}, {system_.TokenId("2"), "Y"}};
    system_.Change();
    system_.Answer(system_.TokenId("1"), {RsaCertificate("Ann")});
  });
  events_.push_back([this] { system_.Answer(system_.TokenId("2"), {EcCertificate("Bob")}); });
  EXPECT_EQ(Run(Action::kList), 0);
  EXPECT_THAT(output_.str(), HasSubstr("2 cards: 2 certificates"));
}

TEST_F(CommandsTest, ListWithoutACardSaysSoAfterAWhile) {
  events_.push_back([this] { system_.AnswerRegistered(); });
  events_.push_back([this] { system_.LetTimePass(); });
  EXPECT_EQ(Run(Action::kList), 1);
  EXPECT_THAT(output_.str(), HasSubstr("There is no reader\n"));
}

TEST_F(CommandsTest, SshKeyOfACertificateOrAKey) {
  Certificate signing = RsaCertificate("Ann");
  signing.key_label = "Signing key";
  CardComes({EcCertificate("Bob"), signing});
  EXPECT_EQ(Run(Action::kSshKey, "Signing key"), 0);
  EXPECT_EQ(output_.str(), *SshKey(signing) + "\n");
  EXPECT_EQ(errors_.str(), "");
}

TEST_F(CommandsTest, SshKeyOfNoneOrSeveralOrAKindThatSshDoesNotKnow) {
  const std::vector<std::pair<std::string, std::string>> sentences = {
      {"nobody", "No certificate and no key has this name.\n"},
      {"Ann", "Several have this name; --list shows them.\n"},
      {"Wide", "ssh knows no key of this kind: it has to be RSA or on P-256.\n"}};
  Certificate wide = EcCertificate("Wide");
  wide.key_bits = 384;
  const std::vector<Certificate> certificates = {RsaCertificate("Ann"), EcCertificate("Ann"), wide};
  CardComes(certificates);
  for (const auto& [label, sentence] : sentences) {
    errors_.str("");
    EXPECT_EQ(Run(Action::kSshKey, label), 1);
    EXPECT_EQ(errors_.str(), sentence);
    TimePasses();
    events_.push_back([&] { system_.Answer(system_.TokenId("4711"), certificates); });
  }
  EXPECT_EQ(output_.str(), "");
}

TEST_F(CommandsTest, SshKeyWithoutACardSaysWhy) {
  events_.push_back([this] { system_.AnswerRegistered(); });
  events_.push_back([this] { system_.LetTimePass(); });
  EXPECT_EQ(Run(Action::kSshKey, "Ann"), 1);
  EXPECT_THAT(errors_.str(), HasSubstr("There is no reader\n"));
}

TEST_F(CommandsTest, ReportWaitsForEveryProgram) {
  CardComes({RsaCertificate("Ann")});
  events_.push_back([this] { system_.AnswerRegistered(); });
  for (int i = 0; i < 7; ++i) {
    events_.push_back([this, i] {
      system_.Answer("", ProcessResult{.output = "said " + std::to_string(i) + "\n"});
    });
  }
  EXPECT_EQ(Run(Action::kReport), 0);
  EXPECT_THAT(output_.str(), HasSubstr("Card 4711"));
  EXPECT_THAT(output_.str(), HasSubstr("\nsaid 6\n"));
  EXPECT_TRUE(events_.empty());
}

}  // namespace
}  // namespace kelvrin::app
