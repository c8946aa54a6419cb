// What is said when the adapter cannot be used, or does not show the slot that was meant.
#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class AdapterTroubleTest : public ModulecheckTest {};

TEST_F(AdapterTroubleTest, AnAdapterThatIsNotThereIsAFailureOnceItIsNeeded) {
  const std::string missing = folder_ / "missing.so";
  const Outcome outcome = Run({FaultyModule("second-search"), "--adapter-library", missing});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, AllOf(StartsWith("modulecheck: the adapter "), HasSubstr(missing)));
  EXPECT_EQ(Run({GoodModule(), "--adapter-library", missing}).status, 0);
}

TEST_F(AdapterTroubleTest, WhatTheAdapterWouldDoIsNotClaimedWhenItDoesNotComeUp) {
  const std::string lines = folder_.Write("lines", "nonsense\n");
  const std::vector<std::string> arguments = {FaultyModule("second-search"), "--adapter-config",
                                              lines};
  const nlohmann::json report = RunJson(arguments);
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(report.at("adapterFailed"), true);
  const nlohmann::json& search = Find(report, "second-search");
  EXPECT_EQ(search.at("verdict"), "not-met");
  EXPECT_EQ(search.at("advice"),
            "It could not be judged behind the adapter: correct " + lines + ".");
  EXPECT_FALSE(search.contains("throughAdapter"));
  EXPECT_THAT(Run(arguments).output,
              HasSubstr("does not work as it is; behind the adapter it could not be judged."));
}

TEST_F(AdapterTroubleTest, AGoodModuleIsNotBlamedForAnAdapterThatDoesNotComeUp) {
  const std::string lines = folder_.Write("lines", "nonsense\n");
  const Outcome outcome = Run({GoodModule(), "--adapter", "--adapter-config", lines});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("The module works as it is; behind the adapter it could not be"),
                    HasSubstr("  Correct " + lines + ".")));
}

TEST_F(AdapterTroubleTest, WithoutTheAdaptersLibraryTheModuleIsJudgedAsItIs) {
  const std::string program = folder_ / "modulecheck";
  std::filesystem::copy_file(KELVRIN_MODULECHECK, program);
  const Outcome outcome = host::testing::RunProgram({program, FaultyModule("second-search")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("WARNING: the adapter's library was not found"),
                    HasSubstr("could not be judged behind the adapter: install the adapter's "
                              "library beside this program."),
                    HasSubstr("does not work as it is; behind the adapter it could not be")));
}

TEST_F(AdapterTroubleTest, AReaderNameThatFitsNoSlotIsWarnedOfBehindTheAdapterToo) {
  EXPECT_THAT(Run({SoftHsm(), "--adapter", "--reader", "No such reader"}).output,
              AllOf(HasSubstr("WARNING: no slot's description contains \"No such reader\""),
                    HasSubstr("LAST slot"), HasSubstr("the adapter takes the FIRST slot")));
  const std::string chosen = folder_.Write("chosen", "token-label = 4711 0815\n");
  EXPECT_THAT(
      Run({SoftHsm(), "--adapter", "--reader", "No such reader", "--adapter-config", chosen})
          .output,
      AllOf(HasSubstr("LAST slot"), Not(HasSubstr("FIRST slot"))));
  const std::string named = folder_.Write("named", "reader-name = My Reader\n");
  EXPECT_THAT(
      Run({SoftHsm(), "--adapter", "--reader", "No such reader", "--adapter-config", named}).output,
      HasSubstr("behind the adapter the extension would use the LAST slot, \"My Reader\""));
}

TEST_F(AdapterTroubleTest, KeysThatFitNoTokenAreNamedAsSuch) {
  for (const char* key : {"token-label", "token-serial", "slot-reader"}) {
    const std::string lines = folder_.Write("lines", std::string(key) + " = Nobody's\n");
    const nlohmann::json report = RunJson({SoftHsm(), "--adapter-config", lines});
    EXPECT_EQ(report.at("exitStatus"), 1);
    EXPECT_EQ(Find(report, "reader-name").at("advice"),
              "Let the keys that choose the slot, in " + lines + ", fit a token that is there.");
    EXPECT_THAT(Find(report, "second-search").at("advice"),
                HasSubstr("could not be judged behind the adapter: let the keys"));
    EXPECT_THAT(report.at("warnings"),
                Contains(AllOf(HasSubstr("the adapter shows no slot: "), HasSubstr(lines),
                               HasSubstr(key), HasSubstr("4711 0815"))));
  }
}

TEST_F(AdapterTroubleTest, WithoutATokenTheKeysThatChooseOneAreNotToBlame) {
  const std::string lines = folder_.Write("lines", "token-label = 4711 0815\n");
  const nlohmann::json report = RunJson({FaultyModule("token"), "--adapter-config", lines});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(report.at("adapterFailed"), false);
  EXPECT_THAT(Find(report, "token").at("advice"), HasSubstr("Insert a card"));
}

TEST_F(AdapterTroubleTest, AMistakeInTheFurtherLinesIsNamedByFileAndLine) {
  const std::string lines = folder_.Write("lines", "# fine\nreservd = x\n");
  const nlohmann::json report = RunJson({SoftHsm(), "--adapter-config", lines});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(report.at("warnings"),
              Contains(HasSubstr("the adapter does not come up: Kelvrin adapter: " + lines +
                                 ":2: unknown key 'reservd'")));
  EXPECT_EQ(Run({SoftHsm(), "--adapter-config", folder_ / "missing"}).status, 1);
}

}  // namespace
}  // namespace kelvrin::modulecheck
