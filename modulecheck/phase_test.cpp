// A phase with workers that are shell scripts.
#include "modulecheck/phase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "tests/temporary_folder.h"
#include "modulecheck/failure.h"

namespace kelvrin::modulecheck {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A worker gets its order as arguments: --worker LIBRARY READER LOGIN STEP...
class PhaseTest : public testing::Test {
 protected:
  PhaseResult Run(const std::string& script, std::vector<std::string> steps,
                  LoginState login = LoginState::kNoPin) {
    const auto program = folder_.Write("worker", "#!/bin/sh\ncd " + folder_.path().string() +
                                                     "\necho \"$@\" >>starts\n" + kWords + script);
    chmod(program.c_str(), 0700);
    login_ = login;
    return RunPhase({program, "library", "reader", std::move(steps), patience_},
                    login == LoginState::kNoPin ? nullptr : &pin_, &login_);
  }
  std::string Text(const std::string& file) const {
    std::ifstream stream(folder_ / file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static std::string Detail(const PhaseResult& result, const std::string& step) {
    const auto found = result.judgements.find(step);
    return found == result.judgements.end() ? "none" : found->second.detail;
  }

  static constexpr char kWords[] =
      "begin() { echo \"{\\\"begin\\\": \\\"$1\\\"}\" >&3; }\n"
      "met() { echo \"{\\\"judgement\\\": {\\\"outcome\\\": \\\"met\\\"}, \\\"of\\\": "
      "\\\"$1\\\"}\" >&3; }\n"
      "login() { echo \"{\\\"login\\\": \\\"$1\\\"}\" >&3; }\n"
      "end() { echo '{\"end\": true}' >&3; }\n"
      "begin bring-up\n";

  TemporaryFolder folder_;
  Secret pin_;
  LoginState login_ = LoginState::kNoPin;
  std::chrono::milliseconds patience_{std::chrono::seconds(60)};
};

TEST_F(PhaseTest, StepsAreHandedOnAndJudgementsTaken) {
  const PhaseResult result =
      Run("begin token; met token; begin finalise; met finalise; end", {"token", "finalise"});
  EXPECT_EQ(result.judgements.at("token").outcome, Outcome::kMet);
  EXPECT_EQ(result.judgements.at("finalise").outcome, Outcome::kMet);
  EXPECT_EQ(Text("starts"), "--worker library reader no-login token finalise\n");
}

TEST_F(PhaseTest, AWorkerThatEndsIsFollowedByOneForWhatIsLeft) {
  const PhaseResult result =
      Run("case $5 in token) begin token; met token; begin second-search; kill -9 $$ ;; esac\n"
          "begin finalise; met finalise; end",
          {"token", "second-search", "finalise"});
  EXPECT_EQ(Detail(result, "second-search"), "the module ended the process (signal 9)");
  EXPECT_EQ(result.judgements.at("second-search").outcome, Outcome::kUnmet);
  EXPECT_EQ(result.judgements.at("finalise").outcome, Outcome::kMet);
  EXPECT_THAT(Text("starts"), HasSubstr("no-login finalise\n"));
}

TEST_F(PhaseTest, AWorkerThatSaysNothingIsEnded) {
  patience_ = std::chrono::seconds(1);
  const PhaseResult result = Run("begin token; exec sleep 3600", {"token"});
  EXPECT_EQ(Detail(result, "token"), "the module did not answer for 1 second");
}

TEST_F(PhaseTest, AWorkerThatEndsWithoutDoingAnythingIsNotRepeatedForEver) {
  const PhaseResult result = Run("begin finalise; exit 4", {"token"});
  EXPECT_EQ(result.judgements.at("token").outcome, Outcome::kUnknown);
  EXPECT_EQ(Text("starts"), "--worker library reader no-login token\n");
}

TEST_F(PhaseTest, WhatEndsWhileItComesUpIsNoWorkerForAnything) {
  const PhaseResult result = Run("exit 4", {"initialise", "token"});
  EXPECT_EQ(Detail(result, "initialise"), "the module ended the process (exit status 4)");
  EXPECT_EQ(result.judgements.at("token").outcome, Outcome::kUnknown);
}

TEST_F(PhaseTest, WhatIsNoMessageIsPassedOver) {
  const PhaseResult result =
      Run("echo noise >&3; echo '[1]' >&3; echo '{\"judgement\": 7, \"of\": 8}' >&3\n"
          "echo '{\"listing\": {}}' >&3; begin token; met token; end",
          {"token"});
  EXPECT_EQ(result.judgements.at("token").outcome, Outcome::kMet);
  EXPECT_FALSE(result.listing);
}

TEST_F(PhaseTest, OutputDoesNotMixInAndTheLastErrorIsKept) {
  testing::internal::CaptureStdout();
  const PhaseResult result =
      Run("echo noise; echo first >&2; echo last >&2; begin token; met token; end", {"token"});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(result.last_error, "last");
}

TEST_F(PhaseTest, AFailureIsGivenWithTheLinkersReason) {
  const PhaseResult result =
      Run("echo 'kvdl_dlopen failed: no such thing' >&2\necho '{\"failure\": \"general\"}' >&3",
          {"token"});
  EXPECT_EQ(result.failure, "no such thing");
}

TEST_F(PhaseTest, ThePinGoesThroughStandardInputAlone) {
  pin_.room()[0] = '4';
  pin_.room()[1] = '2';
  pin_.Resize(2);
  const PhaseResult result =
      Run("cat >input; begin login; login tried; login accepted; met login; end", {"login"},
          LoginState::kUntried);
  EXPECT_EQ(Text("input"), "42");
  EXPECT_EQ(Text("starts"), "--worker library reader login login\n");
  EXPECT_EQ(login_, LoginState::kAccepted);
}

TEST_F(PhaseTest, WithoutAPinStepsThatNeedItAreNotTriedAndTheInputIsEmpty) {
  const PhaseResult result =
      Run("cat >input; begin token; met token; end", {"token", "login", "ecdsa-der"});
  EXPECT_EQ(Text("input"), "");
  EXPECT_EQ(result.judgements.at("ecdsa-der").outcome, Outcome::kNotTried);
  EXPECT_EQ(Detail(result, "login"), "needs --pin-file");
}

TEST_F(PhaseTest, ALoginThatWasNotAnsweredIsNotRepeated) {
  const PhaseResult result =
      Run("begin login; login tried; exit 1", {"login", "ecdsa-der"}, LoginState::kUntried);
  EXPECT_EQ(login_, LoginState::kOver);
  EXPECT_EQ(Detail(result, "login"), "the module ended the process (exit status 1)");
  EXPECT_EQ(result.judgements.at("ecdsa-der").outcome, Outcome::kNotTried);
  EXPECT_EQ(Text("starts"), "--worker library reader login login ecdsa-der\n");
}

TEST_F(PhaseTest, AnAcceptedPinIsUsedAgainAfterACrash) {
  const PhaseResult result =
      Run("case $5 in login) begin login; login tried; login accepted; met login\n"
          "begin ecdsa-der; kill -9 $$ ;; esac\n"
          "begin ecdsa-sha1; login tried; login accepted; met ecdsa-sha1; end",
          {"login", "ecdsa-der", "ecdsa-sha1"}, LoginState::kUntried);
  EXPECT_EQ(result.judgements.at("ecdsa-sha1").outcome, Outcome::kMet);
  EXPECT_EQ(login_, LoginState::kAccepted);
}

TEST_F(PhaseTest, WarningsAreKeptOnce) {
  const PhaseResult result =
      Run("echo '{\"warning\": \"careful\"}' >&3; echo '{\"warning\": \"careful\"}' >&3; end",
          {"token"});
  EXPECT_THAT(result.warnings, ElementsAre("careful"));
}

TEST_F(PhaseTest, AProgramThatIsNotThereIsAFailure) {
  LoginState login = LoginState::kNoPin;
  EXPECT_THROW(
      RunPhase({folder_ / "missing", "library", "", {"token"}, patience_}, nullptr, &login),
      Failure);
}

}  // namespace
}  // namespace kelvrin::modulecheck
