// The PIN: one try at most, none where it would be the last, and never shown.
#include <sys/resource.h>
#include <sys/stat.h>

#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Each thing is tried of the module as it is and with --adapter.
const std::vector<Arguments> kBothWays = {{}, {"--adapter"}};

class PinTest : public ModulecheckTest {
 protected:
  // A report, for people, with a PIN file of this text.
  Outcome RunWith(const std::string& fault, const std::string& pin, const Arguments& more = {}) {
    return Run({FaultyModule(fault), "--pin-file", PinFile(pin)}, more);
  }
};

TEST_F(PinTest, AWrongPinIsTriedOnceInAWholeRunAndCondemnsNobody) {
  for (const Arguments& more : kBothWays) {
    const Outcome outcome = RunWith("second-search", "87654321\n", more);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(Calls("C_Login"), 1u);
    EXPECT_EQ(Calls("C_Sign"), 0u);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("Could not be judged: C_Login gave CKR_PIN_INCORRECT (0xa0)"),
                      HasSubstr("needs a login, and there was none"), Not(HasSubstr("87654321")),
                      Not(HasSubstr("does not work"))));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("87654321")));
  }
  EXPECT_EQ(Reason(RunJson({GoodModule(), "--pin-file", PinFile("87654321\n")})), "wrong-pin");
}

TEST_F(PinTest, APinIsNotTriedWhereNoReaderHasTheNameThatWasGiven) {
  const Outcome outcome =
      RunWith("second-reader-empty", "123456\n", {"--reader", "No such reader"});
  EXPECT_EQ(outcome.status, 4);
  EXPECT_EQ(Calls("C_Login"), 0u);
  EXPECT_THAT(outcome.output, HasSubstr("not logged in: no reader has the name"));
}

TEST_F(PinTest, ACardThatSawAWrongPinIsTriedWithAWarning) {
  const Outcome outcome = RunWith("pin-count-low", "123456\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("WARNING: the token says that a wrong PIN was entered"));
}

TEST_F(PinTest, ALoginThatNobodyKnowsTheEndOfIsNotRepeated) {
  const std::pair<const char*, const char*> cases[] = {{"hang-in-login", "20"},
                                                       {"crash-in-login", "120"}};
  for (const auto& [fault, seconds] : cases) {
    const Outcome outcome = RunWith(fault, "123456\n", {"--timeout", seconds});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(Calls("C_Login"), 1u);
    EXPECT_THAT(outcome.output, HasSubstr("the check ended in the step login: "));
  }
}

TEST_F(PinTest, TheOneLineIsThePin) {
  EXPECT_EQ(RunWith("none", "123456\r\n").status, 0);
  EXPECT_EQ(RunWith("none", "123456").status, 0);
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
  EXPECT_EQ(RunWith("none", "123456\n").status, 0);
  setrlimit(RLIMIT_CORE, &usual);
  EXPECT_EQ(Calls("C_Login"), 1u);
  EXPECT_EQ(Calls("core C_Login"), 0u);
}

// A second line is no comment: which of them is the PIN would cost a try.
TEST_F(PinTest, APinFileThatGivesNoneIsNamedBeforeAnythingIsLoaded) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const Arguments files = {folder_ / "missing",
                           folder_.path(),
                           pipe,
                           "/dev/zero",
                           folder_.Write("empty", "\n"),
                           folder_.Write("two", "123456\n654321\n"),
                           folder_.Write("long", std::string(2000, '1'))};
  for (const std::string& file : files) {
    const Outcome outcome = Run({GoodModule(), "--pin-file", file});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("modulecheck: the PIN file " + file));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("123456")));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "calls"));
  }
}

// Two cards with a PIN each, in a reader each.
class TwoCardsTest : public PinTest {
 protected:
  struct Card {
    std::string label;
    std::string pin;
    std::string reader;
  };
  const Card one_ = {"4711 0815", "123456\n", "First reader"};
  const Card other_ = {"1234 5678", "654321\n", "Second reader"};

  // How often somebody tried to log in to this card.
  std::size_t Logins(const Card& card) const { return Calls("C_Login " + card.label); }

  // A report for people with this reader, PIN and more.
  Outcome RunOn(const std::string& reader, const Card& pin_of, Arguments more) {
    if (!reader.empty()) more.insert(more.end(), {"--reader", reader});
    return RunWith("two-cards", pin_of.pin, more);
  }
};

TEST_F(TwoCardsTest, TheOtherCardsPinIsTriedOnceOnTheCardThatIsNamedAndNowhereElse) {
  for (const Arguments& more : kBothWays) {
    const Outcome outcome = RunOn(one_.reader, other_, more);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.output, HasSubstr("C_Login gave CKR_PIN_INCORRECT (0xa0)"));
    EXPECT_EQ(Logins(one_), 1u);
    EXPECT_EQ(Logins(other_), 0u);
  }
}

TEST_F(TwoCardsTest, ThePinIsWithheldWhereItMayBeAnotherCards) {
  for (const std::string reader : {"", "No such reader"}) {
    for (const Arguments& more : kBothWays) {
      const Outcome outcome = RunOn(reader, one_, more);
      EXPECT_EQ(outcome.status, 4);
      EXPECT_THAT(
          outcome.output,
          HasSubstr(reader.empty() ? "Could not be judged: not logged in: several cards are there"
                                   : "Could not be judged: not logged in: no reader has the name"));
      EXPECT_EQ(Calls("C_Login"), 0u);
    }
  }
}

TEST_F(TwoCardsTest, ThePinIsWithheldFromAnotherCardThatTheAdapterIsToTake) {
  const std::string lines =
      folder_.Write("lines", "any-reader = yes\ntoken-label = " + other_.label + "\n");
  const Outcome outcome = RunOn(one_.reader, one_, {"--adapter", "--adapter-config", lines});
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("not logged in: the adapter's configuration chooses"),
                                    HasSubstr("WARNING: two different tokens were judged: ")));
  EXPECT_GT(Logins(one_), 0u);
  EXPECT_EQ(Logins(other_), 0u);
}

TEST_F(TwoCardsTest, TheCardThatIsNamedIsTriedBehindTheAdapterTooWhenItsKeysChooseIt) {
  const std::string lines = folder_.Write("lines", "token-label = " + other_.label + "\n");
  const Outcome outcome = RunOn(other_.reader, other_, {"--adapter", "--adapter-config", lines});
  EXPECT_EQ(Logins(other_), 2u);
  EXPECT_EQ(Logins(one_), 0u);
  EXPECT_THAT(outcome.output, Not(HasSubstr("not logged in")));
}

TEST_F(TwoCardsTest, TheSlotThatIsJudgedIsTheOneThatIsNamed) {
  std::size_t number = 1;
  for (const Card& card : {one_, other_}) {
    EXPECT_THAT(RunOn(card.reader, card, {}).output,
                HasSubstr("Judged is slot " + std::to_string(number++) + ", \"" + card.reader +
                          "\", with the token \"" + card.label));
  }
}

}  // namespace
}  // namespace kelvrin::modulecheck
