// The programs that the window runs: for the registration, and for the report.
#include <gmock/gmock.h>

#include "app/model/testing/opened_window.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using WindowProgramsTest = OpenedWindow;

TEST_F(WindowProgramsTest, RegistersThenAsksAgain) {
  system_.Answer("pluginkit", {.output = "  (no matches)\n"});
  EXPECT_EQ(state(), State::kNotRegistered);
  model_->Register();
  EXPECT_THAT(system_.running(),
              ElementsAre("/usr/bin/pluginkit -a /Applications/KelvrinToken.app/Contents/PlugIns/"
                          "KelvrinToken.appex"));
  EXPECT_TRUE(system_.Answer("pluginkit", ProcessResult{}));
  EXPECT_THAT(system_.running(),
              ElementsAre("/usr/bin/pluginkit -m -A -D -v -p com.apple.ctk-tokens"));
  system_.AnswerRegistered();
  EXPECT_EQ(state(), State::kNoReader);
  EXPECT_THAT(system_.running(), IsEmpty());
}

TEST_F(WindowProgramsTest, SwitchesOnThenAsksAgain) {
  const std::string line = "    " + system_.here.extension_id + "(1.0.0)\t0A1B\t2027-01-02\t" +
                           system_.here.extension + "\n (1 plug-in)\n";
  system_.Answer("pluginkit", {.output = "-" + line});
  EXPECT_EQ(state(), State::kSwitchedOff);
  model_->SwitchOn();
  EXPECT_THAT(system_.running(), ElementsAre("/usr/bin/pluginkit -e use -i "
                                             "org.kelvrin.KelvrinToken.extension"));
  EXPECT_TRUE(system_.Answer("pluginkit", {.status = 1}));
  system_.Answer("pluginkit", {.output = "+" + line});
  EXPECT_EQ(state(), State::kNoReader);
}

// A window that is activated again asks; it must not end what it has been told to do before.
TEST_F(WindowProgramsTest, AskingDoesNotEndARegistration) {
  system_.Answer("pluginkit", {.output = "  (no matches)\n"});
  model_->Register();
  model_->AskForRegistration();
  ASSERT_EQ(system_.running().size(), 1U);
  EXPECT_TRUE(system_.running()[0].starts_with("/usr/bin/pluginkit -a "));
  system_.Answer("pluginkit", ProcessResult{});
  model_->AskForRegistration();
  EXPECT_EQ(system_.running().size(), 1U);
  system_.AnswerRegistered();
  model_->AskForRegistration();
  system_.Answer("pluginkit", {.output = "  (no matches)\n"});
  EXPECT_EQ(state(), State::kNotRegistered);
}

TEST_F(WindowProgramsTest, TheReportIsMadeAnewAndLetGoOf) {
  system_.AnswerRegistered();
  EXPECT_EQ(model_->diagnosis(), nullptr);
  model_->Diagnose();
  const int before = changes_;
  system_.Answer("codesign", ProcessResult{});
  EXPECT_EQ(model_->diagnosis()->done(), 1U);
  EXPECT_EQ(changes_, before + 1);
  model_->Diagnose();
  EXPECT_EQ(model_->diagnosis()->done(), 0U);
  EXPECT_EQ(system_.running().size(), 1U) << "the first one's program was ended";
  EXPECT_EQ(changes_, before + 2);
  model_->CancelDiagnosis();
  EXPECT_EQ(model_->diagnosis(), nullptr);
  EXPECT_THAT(system_.running(), IsEmpty());
  EXPECT_EQ(changes_, before + 3);
}

}  // namespace
}  // namespace kelvrin::app
