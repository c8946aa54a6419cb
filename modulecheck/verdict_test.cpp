#include "modulecheck/verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvrin::modulecheck {
namespace {

using testing::HasSubstr;

const Judgement kMet = Met();
const Judgement kUnmet = Unmet("C_Sign", CKR_DEVICE_ERROR);
const Judgement kNotConcerned = NotConcerned("there is none");
const Judgement kNotTried = NotTried("needs --pin-file");
const Judgement kUnknown = Unknown("not initialised");

TEST(VerdictTest, AloneTheModuleIsTakenAsItIs) {
  EXPECT_EQ(Decide(kMet, {}, false), Verdict::kMet);
  EXPECT_EQ(Decide(kUnmet, {}, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kUnknown, {}, false), Verdict::kNotReached);
  EXPECT_EQ(Decide(kNotConcerned, {}, false), Verdict::kNotConcerned);
  EXPECT_EQ(Decide(kNotTried, {}, false), Verdict::kNotTried);
}

TEST(VerdictTest, TheAdapterHelpsOrDoesNot) {
  EXPECT_EQ(Decide(kUnmet, kMet, false), Verdict::kThroughAdapter);
  EXPECT_EQ(Decide(kUnmet, kNotConcerned, false), Verdict::kThroughAdapter);
  EXPECT_EQ(Decide(kUnmet, kUnmet, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kUnmet, kUnknown, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kUnmet, kNotTried, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kUnknown, kMet, false), Verdict::kThroughAdapter);
  EXPECT_EQ(Decide(kUnknown, kUnmet, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kUnknown, kUnknown, false), Verdict::kNotReached);
  EXPECT_EQ(Decide(kNotConcerned, kUnmet, false), Verdict::kNotMet);
  EXPECT_EQ(Decide(kNotTried, kMet, false), Verdict::kThroughAdapter);
}

TEST(VerdictTest, WhatTheModuleDoesWellIsJudgedAgainOnlyWhenTheAdapterIsTheSubject) {
  EXPECT_EQ(Decide(kMet, kUnmet, false), Verdict::kMet);
  EXPECT_EQ(Decide(kMet, kUnmet, true), Verdict::kNotMet);
  EXPECT_EQ(Decide(kMet, kMet, true), Verdict::kMet);
}

ExpectationReport Of(Verdict verdict, const char* name = "second-search") {
  ExpectationReport report;
  report.expectation = FindExpectation(name);
  report.verdict = verdict;
  report.as_it_is = kUnmet;
  return report;
}

TEST(VerdictTest, OneThatIsNotMetSpoilsAll) {
  EXPECT_EQ(Conclude({Of(Verdict::kMet), Of(Verdict::kNotTried), Of(Verdict::kNotConcerned)}),
            Conclusion::kWorks);
  EXPECT_EQ(Conclude({Of(Verdict::kMet), Of(Verdict::kThroughAdapter)}),
            Conclusion::kWorksWithAdapter);
  EXPECT_EQ(Conclude({Of(Verdict::kThroughAdapter), Of(Verdict::kNotMet)}),
            Conclusion::kDoesNotWork);
  EXPECT_EQ(Conclude({Of(Verdict::kMet), Of(Verdict::kNotReached)}), Conclusion::kDoesNotWork);
}

TEST(VerdictTest, AdviceNamesTheRules) {
  EXPECT_EQ(Advise(Of(Verdict::kThroughAdapter)),
            "Put the adapter in front of it (rule finished-searches).");
  EXPECT_THAT(Advise(Of(Verdict::kThroughAdapter, "sign-during-search")),
              HasSubstr("(rules finished-searches, worker-sessions)"));
  EXPECT_EQ(Advise(Of(Verdict::kThroughAdapter, "set-up")), "Put the adapter in front of it.");
  EXPECT_EQ(Advise(Of(Verdict::kMet)), "");
}

TEST(VerdictTest, WhatTheAdapterWouldDoIsNotClaimedBeforeTheCure) {
  ExpectationReport report = Of(Verdict::kNotMet);
  EXPECT_EQ(Advise(report), "Ask the module's maker.");
  EXPECT_EQ(Advise(report, "correct my.conf"),
            "It could not be judged behind the adapter: correct my.conf.");
  report.through_adapter = kUnknown;
  EXPECT_THAT(Advise(report, "correct my.conf"), HasSubstr("could not be judged"));
  report.through_adapter = kUnmet;
  EXPECT_EQ(Advise(report, "correct my.conf"), "Correct my.conf.");
}

TEST(VerdictTest, ACureOfTheAdapterIsNoAdviceOnWhatItDoesNotChange) {
  const std::string advice = Advise(Of(Verdict::kNotMet, "certificates"), "correct my.conf");
  EXPECT_EQ(advice, FindExpectation("certificates")->advice);
}

TEST(VerdictTest, EveryExpectationHasANameOfItsOwnAndAdvice) {
  for (const Expectation& expectation : Expectations()) {
    EXPECT_EQ(FindExpectation(expectation.name), &expectation);
    EXPECT_TRUE(expectation.advice.ends_with('.')) << expectation.name;
    EXPECT_EQ(expectation.probe == nullptr, expectation.name == kLoginName);
  }
}

}  // namespace
}  // namespace kelvrin::modulecheck
