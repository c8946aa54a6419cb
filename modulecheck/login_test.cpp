// The PIN: one try at most, none where it would be the last, and never shown.
#include <sys/resource.h>

#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class PinTest : public ModulecheckTest {
 protected:
  // A report, for people, with a PIN file of this text.
  Outcome RunWith(const std::string& fault, const std::string& pin,
                  const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {FaultyModule(fault, SoftHsm()), "--pin-file",
                                          folder_.Write("pin", pin)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments);
  }
};

TEST_F(PinTest, AWrongPinIsTriedOnceInAWholeRun) {
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, std::vector<std::string>{"--adapter"}}) {
    const Outcome outcome = RunWith("none", "87654321\n", more);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(Calls("C_Login"), 1u);
    EXPECT_EQ(Calls("C_Sign"), 0u);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("C_Login gave CKR_PIN_INCORRECT (0xa0)"),
                      HasSubstr("needs a login, and there was none"), Not(HasSubstr("87654321"))));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("87654321")));
  }
}

TEST_F(PinTest, ACardThatSaysThatOneTryIsLeftIsNotTried) {
  for (const char* fault : {"pin-final-try", "pin-locked"}) {
    const Outcome outcome = RunWith(fault, "123456\n");
    EXPECT_EQ(outcome.status, 1) << fault;
    EXPECT_EQ(Calls("C_Login"), 0u) << fault;
    EXPECT_THAT(outcome.output, HasSubstr("WARNING: not logged in: the token says that"));
  }
}

TEST_F(PinTest, APinIsNotTriedWhereNoReaderHasTheNameThatWasGiven) {
  const Outcome outcome = RunWith("none", "123456\n", {"--reader", "No such reader"});
  EXPECT_EQ(Calls("C_Login"), 0u);
  EXPECT_THAT(outcome.output, HasSubstr("WARNING: not logged in: no reader has the name"));
}

TEST_F(PinTest, ACardThatSawAWrongPinIsTriedWithAWarning) {
  const Outcome outcome = RunWith("pin-count-low", "123456\n");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.output, HasSubstr("WARNING: the token says that a wrong PIN was entered"));
}

TEST_F(PinTest, ALoginThatNobodyKnowsTheEndOfIsNotRepeated) {
  const Outcome outcome = RunWith("hang-in-login", "123456\n", {"--timeout", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(Calls("C_Login"), 1u);
  EXPECT_THAT(outcome.output, HasSubstr("the module did not answer for 1 second"));
}

TEST_F(PinTest, TheFirstLineAloneIsThePin) {
  EXPECT_EQ(RunWith("none", "123456\r\nmore\n").status, 3);
  EXPECT_EQ(RunWith("none", "123456").status, 3);
}

TEST_F(PinTest, APinIsNeverShown) {
  const Outcome outcome = RunWith("crash-in-sign", "123456\n", {"--json"});
  EXPECT_THAT(outcome.output, Not(HasSubstr("123456")));
  EXPECT_THAT(outcome.errors, Not(HasSubstr("123456")));
}

TEST_F(PinTest, ACrashOfTheModuleLeavesNoPinInACoreFile) {
  rlimit usual = {};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &usual), 0);
  const rlimit most = {usual.rlim_max, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &most), 0);
  EXPECT_EQ(RunWith("none", "123456\n").status, 3);
  setrlimit(RLIMIT_CORE, &usual);
  EXPECT_GT(Calls("C_Login"), 0u);
  EXPECT_EQ(Calls("core C_Login"), 0u);
}

TEST_F(PinTest, APinFileThatGivesNoneIsNamedBeforeAnythingIsLoaded) {
  const std::vector<std::string> files = {folder_ / "missing", folder_.path(),
                                          folder_.Write("empty", "\n"),
                                          folder_.Write("long", std::string(2000, '1'))};
  for (const std::string& file : files) {
    const Outcome outcome = Run({FaultyModule("exit-at-start"), "--pin-file", file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, AllOf(HasSubstr("modulecheck: the PIN file " + file)));
  }
}

// Two cards with a PIN each; nobody knows which of them is in the first slot.
class TwoCardsTest : public ModulecheckTest {
 protected:
  static constexpr char kOne[] = "4711 0815";
  static constexpr char kOther[] = "1234 5678";

  TwoCardsTest() {
    card_.Add({.name = "other", .label = kOther, .pin = "654321", .empty = true});
    slots_ = RunJson({SoftHsm()}).at("listing").at("slots");
  }
  std::string ReaderOf(const std::string& label) const {
    for (const auto& slot : slots_) {
      if (slot.at("label") == label) return slot.at("readerName");
    }
    ADD_FAILURE() << label;
    return "";
  }
  std::string PinOf(const std::string& label) const {
    return card_.File(label == kOne ? "card" : "other", "pin");
  }
  // How often somebody tried to log in to this card.
  std::size_t Logins(const std::string& label) const { return Calls("C_Login " + label); }

  nlohmann::json slots_;
};

TEST_F(TwoCardsTest, TheOtherCardsPinIsTriedOnceOnTheCardThatIsNamedAndNowhereElse) {
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, std::vector<std::string>{"--adapter"}}) {
    std::vector<std::string> arguments = {FaultyModule("none", SoftHsm()), "--reader",
                                          ReaderOf(kOne), "--pin-file", PinOf(kOther)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("C_Login gave CKR_PIN_INCORRECT (0xa0)"));
    EXPECT_EQ(Logins(kOne), 1u);
    EXPECT_EQ(Logins(kOther), 0u);
  }
}

TEST_F(TwoCardsTest, ThePinIsWithheldWhereSeveralCardsAreThereAndNoReaderIsNamed) {
  const Outcome outcome =
      Run({FaultyModule("none", SoftHsm()), "--pin-file", PinOf(kOne), "--adapter"});
  EXPECT_THAT(outcome.output,
              HasSubstr("WARNING: not logged in: several cards are there and no reader was named"));
  EXPECT_EQ(Logins(kOne) + Logins(kOther), 0u);
}

TEST_F(TwoCardsTest, ThePinIsWithheldFromAnotherCardThatTheAdapterIsToTake) {
  const std::string lines = folder_.Write("lines", "token-label = " + std::string(kOther) + "\n");
  const Outcome outcome = Run({FaultyModule("none", SoftHsm()), "--reader", ReaderOf(kOne),
                               "--pin-file", PinOf(kOne), "--adapter", "--adapter-config", lines});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_GT(Logins(kOne), 0u);
  EXPECT_EQ(Logins(kOther), 0u);
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("WARNING: not logged in behind the adapter: its keys choose another "
                              "token"),
                    HasSubstr("WARNING: two different tokens were judged: as it is the token \"" +
                              std::string(kOne)),
                    HasSubstr("behind the adapter the token \"" + std::string(kOther))));
}

TEST_F(TwoCardsTest, TheCardThatIsNamedIsTriedBehindTheAdapterTooWhenItsKeysChooseIt) {
  const std::string lines = folder_.Write("lines", "token-label = " + std::string(kOther) + "\n");
  const Outcome outcome =
      Run({FaultyModule("none", SoftHsm()), "--reader", ReaderOf(kOther), "--pin-file",
           PinOf(kOther), "--adapter", "--adapter-config", lines});
  EXPECT_EQ(Logins(kOther), 2u);
  EXPECT_EQ(Logins(kOne), 0u);
  EXPECT_THAT(outcome.output, Not(HasSubstr("not logged in")));
}

TEST_F(TwoCardsTest, ThePinIsWithheldWhereNoReaderHasTheName) {
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, std::vector<std::string>{"--adapter"}}) {
    std::vector<std::string> arguments = {FaultyModule("none", SoftHsm()), "--reader",
                                          "No such reader", "--pin-file", PinOf(kOne)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    EXPECT_THAT(Run(arguments).output,
                AllOf(HasSubstr("WARNING: not logged in: no reader has the name"),
                      HasSubstr("LAST slot"), HasSubstr("FIRST slot")));
    EXPECT_EQ(Calls("C_Login"), 0u);
  }
}

class ProcessTest : public ModulecheckTest {};

TEST_F(ProcessTest, ACrashIsBlamedOnTheProbeThatWasUnderWay) {
  const nlohmann::json report = RunJson({FaultyModule("crash-in-sign"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(Find(report, "ecdsa-der").at("asItIs").at("detail"),
              HasSubstr("the module ended the process (signal "));
  EXPECT_EQ(VerdictOn(report, "decrypt-pkcs1"), "met");
  EXPECT_EQ(VerdictOn(report, "private-keys"), "met");
}

TEST_F(ProcessTest, AModuleThatDoesNotAnswerIsGivenUp) {
  const nlohmann::json report =
      RunJson({FaultyModule("hang-in-sign"), "--pin-file", PinFile(), "--timeout", "1"});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(Find(report, "ecdsa-der").at("asItIs").at("detail"),
            "the module did not answer for 1 second");
  EXPECT_EQ(VerdictOn(report, "decrypt-raw"), "met");
}

TEST_F(ProcessTest, AModuleThatEndsTheProcessAtOnceDoesNotWork) {
  const nlohmann::json report = RunJson({FaultyModule("exit-at-start")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(Find(report, "initialise").at("asItIs").at("detail"),
            "the module ended the process (exit status 3)");
  EXPECT_EQ(VerdictOn(report, "second-search"), "not-reached");
}

TEST_F(ProcessTest, ACrashWhileListingLeavesTheJudgementWhole) {
  const nlohmann::json report = RunJson({FaultyModule("crash-in-listing")});
  EXPECT_THAT(report.at("warnings"), Contains(HasSubstr("while its objects were listed")));
  EXPECT_EQ(VerdictOn(report, "second-search"), "met");
}

}  // namespace
}  // namespace kelvrin::modulecheck
