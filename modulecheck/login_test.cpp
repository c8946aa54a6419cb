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
const std::vector<std::vector<std::string>> kBothWays = {{}, {"--adapter"}};

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

TEST_F(PinTest, AWrongPinIsTriedOnceInAWholeRunAndCondemnsNobody) {
  for (const std::vector<std::string>& more : kBothWays) {
    const Outcome outcome = RunWith("none", "87654321\n", more);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(Calls("C_Login"), 1u);
    EXPECT_EQ(Calls("C_Sign"), 0u);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("Could not be judged: C_Login gave CKR_PIN_INCORRECT (0xa0)"),
                      HasSubstr("needs a login, and there was none"), Not(HasSubstr("87654321")),
                      Not(HasSubstr("does not work"))));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("87654321")));
  }
  const nlohmann::json report =
      RunJson({FaultyModule("none"), "--pin-file", folder_.Write("pin", "87654321\n")});
  EXPECT_EQ(Reason(report), "wrong-pin");
  EXPECT_EQ(report.at("exitStatus"), 4);
}

TEST_F(PinTest, ACardThatSaysThatOneTryIsLeftIsNotTried) {
  for (const char* fault : {"pin-final-try", "pin-locked"}) {
    const nlohmann::json report = RunJson({FaultyModule(fault), "--pin-file", PinFile()});
    EXPECT_EQ(report.at("exitStatus"), 4) << fault;
    EXPECT_EQ(Reason(report), "login-withheld");
    EXPECT_THAT(report.at("notJudged").at("text"), HasSubstr("the token says that"));
    EXPECT_EQ(Calls("C_Login"), 0u) << fault;
  }
}

TEST_F(PinTest, APinIsNotTriedWhereNoReaderHasTheNameThatWasGiven) {
  const Outcome outcome = RunWith("none", "123456\n", {"--reader", "No such reader"});
  EXPECT_EQ(outcome.status, 4);
  EXPECT_EQ(Calls("C_Login"), 0u);
  EXPECT_THAT(outcome.output, HasSubstr("not logged in: no reader has the name"));
}

TEST_F(PinTest, ACardThatSawAWrongPinIsTriedWithAWarning) {
  const Outcome outcome = RunWith("pin-count-low", "123456\n");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.output, HasSubstr("WARNING: the token says that a wrong PIN was entered"));
}

TEST_F(PinTest, ALoginThatNobodyKnowsTheEndOfIsNotRepeated) {
  for (const char* fault : {"hang-in-login", "crash-in-login"}) {
    const Outcome outcome = RunWith(fault, "123456\n", {"--timeout", "4"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(Calls("C_Login"), 1u);
    EXPECT_THAT(outcome.output, HasSubstr("the check ended in the step login: "));
  }
}

TEST_F(PinTest, TheOneLineIsThePin) {
  EXPECT_EQ(RunWith("none", "123456\r\n").status, 3);
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

// A second line is no comment: which of them is the PIN would cost a try.
TEST_F(PinTest, APinFileThatGivesNoneIsNamedBeforeAnythingIsLoaded) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::vector<std::string> files = {folder_ / "missing",
                                          folder_.path(),
                                          pipe,
                                          "/dev/zero",
                                          folder_.Write("empty", "\n"),
                                          folder_.Write("two", "123456\n654321\n"),
                                          folder_.Write("long", std::string(2000, '1'))};
  for (const std::string& file : files) {
    const Outcome outcome = Run({FaultyModule("none"), "--pin-file", file});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr("modulecheck: the PIN file " + file));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("123456")));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "calls"));
  }
}

// Two cards with a PIN each; nobody knows which of them is in the first slot.
class TwoCardsTest : public ModulecheckTest {
 protected:
  static constexpr char kOne[] = "4711 0815";
  static constexpr char kOther[] = "1234 5678";

  TwoCardsTest() {
    card_.Add({.name = "other", .label = kOther, .pin = "654321"});
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

  // A report for people of the cards as they are, with this reader, PIN and more.
  Outcome RunOn(const std::string& reader, const std::string& pin_of,
                std::vector<std::string> more) const {
    more.insert(more.begin(), {FaultyModule("none", SoftHsm()), "--pin-file", PinOf(pin_of)});
    if (!reader.empty()) more.insert(more.end(), {"--reader", reader});
    return Run(more);
  }

  nlohmann::json slots_;
};

TEST_F(TwoCardsTest, TheOtherCardsPinIsTriedOnceOnTheCardThatIsNamedAndNowhereElse) {
  for (const std::vector<std::string>& more : kBothWays) {
    const Outcome outcome = RunOn(ReaderOf(kOne), kOther, more);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_THAT(outcome.output, HasSubstr("C_Login gave CKR_PIN_INCORRECT (0xa0)"));
    EXPECT_EQ(Logins(kOne), 1u);
    EXPECT_EQ(Logins(kOther), 0u);
  }
}

TEST_F(TwoCardsTest, ThePinIsWithheldWhereItMayBeAnotherCards) {
  for (const std::string reader : {"", "No such reader"}) {
    for (const std::vector<std::string>& more : kBothWays) {
      const Outcome outcome = RunOn(reader, kOne, more);
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
      folder_.Write("lines", "any-reader = yes\ntoken-label = " + std::string(kOther) + "\n");
  const Outcome outcome = RunOn(ReaderOf(kOne), kOne, {"--adapter", "--adapter-config", lines});
  EXPECT_THAT(outcome.output, HasSubstr("not logged in: the adapter's configuration chooses"));
  EXPECT_GT(Logins(kOne), 0u);
  EXPECT_EQ(Logins(kOther), 0u);
}

TEST_F(TwoCardsTest, TheCardThatIsNamedIsTriedBehindTheAdapterTooWhenItsKeysChooseIt) {
  const std::string lines = folder_.Write("lines", "token-label = " + std::string(kOther) + "\n");
  const Outcome outcome = RunOn(ReaderOf(kOther), kOther, {"--adapter", "--adapter-config", lines});
  EXPECT_EQ(Logins(kOther), 2u);
  EXPECT_EQ(Logins(kOne), 0u);
  EXPECT_THAT(outcome.output, Not(HasSubstr("not logged in")));
}

TEST_F(TwoCardsTest, TheSlotThatIsJudgedIsTheOneThatIsNamed) {
  for (const char* label : {kOne, kOther}) {
    const nlohmann::json listing = RunJson({SoftHsm(), "--reader", ReaderOf(label)}).at("listing");
    const std::size_t judged = listing.at("judged");
    ASSERT_GT(judged, 0u);
    EXPECT_EQ(listing.at("slots")[judged - 1].at("label"), label);
    EXPECT_THAT(Run({SoftHsm(), "--reader", ReaderOf(label)}).output,
                HasSubstr("Judged is slot " + std::to_string(judged) + ", \"" + ReaderOf(label) +
                          "\", with the token \"" + label));
  }
}

}  // namespace
}  // namespace kelvrin::modulecheck
