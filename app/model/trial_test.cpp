#include "app/model/trial.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "app/model/testing/scripted_system.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using TrialEnd = Attempt::End;

Attempt FailureOf(const std::string& domain, int64_t code) {
  return {.end = TrialEnd::kFailed, .domain = domain, .code = code, .description = "It failed"};
}

class TrialTest : public testing::Test {
 protected:
  void Begin(const Certificate& certificate) {
    trial_ = std::make_unique<Trial>(&system_, certificate, [this] { ++changes_; });
  }
  bool Answer(TrialEnd end) { return system_.Answer(Attempt{.end = end}); }

  ScriptedSystem system_;
  int changes_ = 0;
  std::unique_ptr<Trial> trial_;
};

TEST(TrialSchemesTest, WhatTheKeyCanDo) {
  Certificate rsa = RsaCertificate("Ann");
  EXPECT_THAT(SchemesFor(rsa), ElementsAre(Scheme::kPkcs1, Scheme::kPss, Scheme::kDecryption));
  rsa.can_decrypt = false;
  EXPECT_THAT(SchemesFor(rsa), ElementsAre(Scheme::kPkcs1, Scheme::kPss));
  rsa.can_decrypt = true;
  rsa.can_sign = false;
  EXPECT_THAT(SchemesFor(rsa), ElementsAre(Scheme::kDecryption));

  Certificate ec = EcCertificate("Ann");
  ec.can_decrypt = true;
  EXPECT_THAT(SchemesFor(ec), ElementsAre(Scheme::kEcdsa));
  ec.can_sign = false;
  EXPECT_THAT(SchemesFor(ec), IsEmpty());
  ec.can_sign = true;
  ec.key_type = KeyType::kOther;
  EXPECT_THAT(SchemesFor(ec), IsEmpty());

  Certificate keyless = RsaCertificate("CA");
  keyless.has_key = false;
  EXPECT_THAT(SchemesFor(keyless), IsEmpty());
}

TEST_F(TrialTest, OneSchemeAfterTheOther) {
  Begin(RsaCertificate("Ann"));
  EXPECT_EQ(trial_->count(), 3U);
  const std::vector<Scheme> order = {Scheme::kPkcs1, Scheme::kPss, Scheme::kDecryption};
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(trial_->done(), i);
    EXPECT_EQ(trial_->running(), order[i]);
    EXPECT_EQ(trial_->verdict(), std::nullopt);
    EXPECT_EQ(system_.schemes().size(), i + 1);
    EXPECT_EQ(changes_, static_cast<int>(i));
    EXPECT_TRUE(Answer(TrialEnd::kWorked));
  }
  EXPECT_EQ(changes_, 3);
  EXPECT_EQ(trial_->verdict(), Verdict::kWorked);
  EXPECT_EQ(trial_->running(), std::nullopt);
  EXPECT_EQ(system_.schemes(), order);
  EXPECT_EQ(trial_->results()[2].scheme, Scheme::kDecryption);
}

TEST_F(TrialTest, WhatTheCardLacksIsPassedOver) {
  Begin(RsaCertificate("Ann"));
  Answer(TrialEnd::kUnsupported);
  Answer(TrialEnd::kUnsupported);
  Answer(TrialEnd::kWorked);
  EXPECT_EQ(trial_->verdict(), Verdict::kWorked);
  EXPECT_EQ(trial_->results()[0].attempt.end, TrialEnd::kUnsupported);
}

TEST_F(TrialTest, ACardThatSupportsNothing) {
  Begin(EcCertificate("Ann"));
  Answer(TrialEnd::kUnsupported);
  EXPECT_EQ(trial_->verdict(), Verdict::kUnsupported);
  EXPECT_EQ(changes_, 1);
}

TEST_F(TrialTest, AKeyThatOnlyAgreesOnKeysHasNothingToTry) {
  Certificate certificate = EcCertificate("Ann");
  certificate.can_sign = false;
  Begin(certificate);
  EXPECT_EQ(trial_->verdict(), Verdict::kUnsupported);
  EXPECT_EQ(trial_->running(), std::nullopt);
  EXPECT_THAT(system_.schemes(), IsEmpty());
  EXPECT_EQ(changes_, 0);
}

// What would ask for the PIN once more is left alone.
TEST_F(TrialTest, StopsAtOnceAfterARefusedPin) {
  Begin(RsaCertificate("Ann"));
  EXPECT_TRUE(system_.Answer(FailureOf("CryptoTokenKit", -5)));
  EXPECT_EQ(trial_->verdict(), Verdict::kPinRefused);
  EXPECT_THAT(system_.schemes(), ElementsAre(Scheme::kPkcs1));
  EXPECT_EQ(changes_, 1);
  EXPECT_EQ(trial_->done(), 1U);
}

struct KnownFailure {
  const char* domain;
  int64_t code;
  Verdict first;  // when nothing has worked yet
  Verdict later;
};

TEST(TrialVerdictTest, OfEachError) {
  constexpr char kToken[] = "CryptoTokenKit";
  constexpr char kStatus[] = "NSOSStatusErrorDomain";
  constexpr char kPerson[] = "com.apple.LocalAuthentication";
  const KnownFailure failures[] = {
      {kToken, -2, Verdict::kNoReason, Verdict::kFailed},
      {kToken, -4, Verdict::kPinNotEntered, Verdict::kPinNotEntered},
      {kToken, -5, Verdict::kPinRefused, Verdict::kPinRefused},
      {kToken, -6, Verdict::kKeyNotFound, Verdict::kKeyNotFound},
      {kToken, -7, Verdict::kCardGone, Verdict::kCardGone},
      {kToken, -3, Verdict::kFailed, Verdict::kFailed},
      {kToken, -128, Verdict::kFailed, Verdict::kFailed},
      {kStatus, -128, Verdict::kPinNotEntered, Verdict::kPinNotEntered},
      {kStatus, -25293, Verdict::kPinRefused, Verdict::kPinRefused},
      {kStatus, -25300, Verdict::kKeyNotFound, Verdict::kKeyNotFound},
      {kStatus, -2, Verdict::kFailed, Verdict::kFailed},
      {kPerson, -1, Verdict::kPinRefused, Verdict::kPinRefused},
      {kPerson, -2, Verdict::kPinNotEntered, Verdict::kPinNotEntered},
      {"", 0, Verdict::kFailed, Verdict::kFailed},
  };
  for (const KnownFailure& failure : failures) {
    const Attempt attempt = FailureOf(failure.domain, failure.code);
    EXPECT_EQ(VerdictOf(attempt, true), failure.first) << failure.domain << failure.code;
    EXPECT_EQ(VerdictOf(attempt, false), failure.later) << failure.domain << failure.code;
  }
}

TEST(TrialVerdictTest, OfEachOtherEnd) {
  for (const bool is_first : {true, false}) {
    EXPECT_EQ(VerdictOf({.end = TrialEnd::kWorked}, is_first), std::nullopt);
    EXPECT_EQ(VerdictOf({.end = TrialEnd::kUnsupported}, is_first), std::nullopt);
    EXPECT_EQ(VerdictOf({.end = TrialEnd::kWrongResult}, is_first), Verdict::kWrongResult);
    EXPECT_EQ(VerdictOf({.end = TrialEnd::kNoKey}, is_first), Verdict::kKeyNotFound);
  }
}

TEST_F(TrialTest, AFailureWithoutAReasonIsAWrongPinOnlyAtFirst) {
  Begin(RsaCertificate("Ann"));
  Answer(TrialEnd::kUnsupported);
  system_.Answer(FailureOf("CryptoTokenKit", -2));
  EXPECT_EQ(trial_->verdict(), Verdict::kNoReason);

  Begin(RsaCertificate("Ann"));
  Answer(TrialEnd::kWorked);
  system_.Answer(FailureOf("CryptoTokenKit", -2));
  EXPECT_EQ(trial_->verdict(), Verdict::kFailed);
  EXPECT_EQ(trial_->results()[1].attempt.description, "It failed");
}

TEST_F(TrialTest, AWrongResultEndsIt) {
  Begin(RsaCertificate("Ann"));
  Answer(TrialEnd::kWrongResult);
  EXPECT_EQ(trial_->verdict(), Verdict::kWrongResult);
  EXPECT_EQ(system_.schemes().size(), 1U);
}

TEST_F(TrialTest, CancelledWhileTheCardWorks) {
  Begin(RsaCertificate("Ann"));
  trial_->Cancel();
  EXPECT_EQ(trial_->verdict(), Verdict::kCancelled);
  EXPECT_EQ(changes_, 1);
  EXPECT_FALSE(Answer(TrialEnd::kWorked)) << "what comes afterwards is not wanted";
  EXPECT_EQ(trial_->done(), 0U);
}

TEST_F(TrialTest, ThePulledCardIsTheBetterReason) {
  Begin(EcCertificate("Ann"));
  system_.Answer(FailureOf("CryptoTokenKit", -3));
  trial_->CardIsGone();
  EXPECT_EQ(trial_->verdict(), Verdict::kCardGone);
  EXPECT_EQ(changes_, 2);
}

TEST_F(TrialTest, LettingGoOfItLetsGoOfTheQuestion) {
  Begin(EcCertificate("Ann"));
  trial_.reset();
  EXPECT_FALSE(Answer(TrialEnd::kWorked));
  EXPECT_EQ(changes_, 0);
}

}  // namespace
}  // namespace kelvrin::app
