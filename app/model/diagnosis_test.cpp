#include "app/model/diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "app/model/testing/scripted_system.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ProgramEnd = ProcessResult::End;

class DiagnosisTest : public testing::Test {
 protected:
  DiagnosisTest() {
    diagnosis_ = std::make_unique<Diagnosis>(&system_, [this] { ++changes_; });
  }

  ScriptedSystem system_;
  int changes_ = 0;
  std::unique_ptr<Diagnosis> diagnosis_;
};

TEST_F(DiagnosisTest, OneProgramAfterTheOther) {
  using Kind = Section::Kind;
  const std::string application = "/Applications/KelvrinToken.app";
  const std::string adapter = application +
                              "/Contents/PlugIns/KelvrinToken.appex/Contents/Resources/"
                              "libpkcs11qarn_Lindel_PCSC.dylib";
  const std::pair<Kind, std::string> programs[] = {
      {Kind::kSignature, "/usr/bin/codesign -d --verbose=2 " + application},
      {Kind::kSignature, "/usr/bin/codesign --verify --deep --strict " + application},
      {Kind::kRegistration, "/usr/bin/pluginkit -m -A -D -v -p com.apple.ctk-tokens"},
      {Kind::kReaders, "/usr/sbin/system_profiler SPSmartCardsDataType"},
      {Kind::kTokens, "/usr/bin/security list-smartcards"},
      {Kind::kModule, application +
                          "/Contents/MacOS/modulecheck --json --timeout 60 "
                          "--adapter-library " +
                          adapter + " " + adapter},
      {Kind::kLog,
       "/usr/bin/log show --last 10m --info --style compact --predicate processImagePath CONTAINS "
       "\"KelvrinToken.appex\" OR subsystem == \"com.apple.CryptoTokenKit\""},
  };
  ASSERT_EQ(diagnosis_->count(), std::size(programs));
  int ended = 0;
  for (const auto& [kind, command] : programs) {
    EXPECT_EQ(diagnosis_->done(), static_cast<size_t>(ended));
    EXPECT_FALSE(diagnosis_->is_complete());
    ASSERT_THAT(system_.running(), ElementsAre(command));
    const std::string said = "Said " + std::to_string(++ended);
    EXPECT_TRUE(system_.Answer("", {.status = ended, .output = said, .errors = ", and wrong"}));
    EXPECT_EQ(changes_, ended);
    const Section& section = diagnosis_->sections().back();
    EXPECT_EQ(section.kind, kind);
    EXPECT_EQ(section.text, said + ", and wrong");
    EXPECT_EQ(section.end, ProgramEnd::kExited);
    EXPECT_EQ(section.status, ended);
  }
  EXPECT_TRUE(diagnosis_->is_complete());
  EXPECT_THAT(system_.running(), IsEmpty());
}

TEST_F(DiagnosisTest, TheCommandIsShownAsOneWouldTypeIt) {
  while (!diagnosis_->is_complete()) ASSERT_TRUE(system_.Answer("", ProcessResult{}));
  EXPECT_EQ(diagnosis_->sections()[2].command,
            "/usr/bin/pluginkit -m -A -D -v -p com.apple.ctk-tokens");
  EXPECT_TRUE(diagnosis_->sections()[6].command.ends_with(
      "--predicate 'processImagePath CONTAINS \"KelvrinToken.appex\" OR subsystem == "
      "\"com.apple.CryptoTokenKit\"'"));
}

TEST_F(DiagnosisTest, ProgramsThatAreMissingOrSlowDoNotStopIt) {
  system_.Answer("codesign", {.end = ProgramEnd::kNoProgram});
  system_.Answer("codesign", {.end = ProgramEnd::kTimedOut, .output = "so far"});
  EXPECT_EQ(diagnosis_->sections()[0].end, ProgramEnd::kNoProgram);
  EXPECT_EQ(diagnosis_->sections()[1].end, ProgramEnd::kTimedOut);
  EXPECT_EQ(diagnosis_->sections()[1].text, "so far");
  EXPECT_EQ(system_.running().size(), 1U);
}

// modulecheck ends itself before it is ended, so that it says how far it came.
TEST_F(DiagnosisTest, EachProgramHasItsTime) {
  std::vector<int> seconds;
  while (!diagnosis_->is_complete()) {
    seconds.push_back(system_.seconds());
    system_.Answer("", ProcessResult{});
  }
  EXPECT_THAT(seconds, ElementsAre(10, 30, 10, 30, 10, 70, 60));
}

TEST_F(DiagnosisTest, LettingGoOfItEndsTheProgram) {
  system_.Answer("codesign", ProcessResult{});
  diagnosis_.reset();
  EXPECT_THAT(system_.running(), IsEmpty());
  EXPECT_EQ(changes_, 1);
}

}  // namespace
}  // namespace kelvrin::app
