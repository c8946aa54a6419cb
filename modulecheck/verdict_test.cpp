#include "modulecheck/verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "modulecheck/listing.h"
#include "modulecheck/login.h"

namespace kelvrin::modulecheck {
namespace {

using nlohmann::json;
using testing::HasSubstr;

const Judgement kMet = Met();
const Judgement kUnmet = Unmet("C_Sign", CKR_DEVICE_ERROR);
const Judgement kNotConcerned = NotConcerned("there is none");
const Judgement kNotTried = NotTried("needs --pin-file");
const Judgement kUnknown = Unknown("not initialised");

const Expectation& Find(std::string_view name) {
  const auto all = Expectations();
  return *std::ranges::find_if(all, [&](const Expectation& one) { return one.name == name; });
}

Verdict DecideOn(const Judgement& alone, const std::optional<Judgement>& behind,
                 bool is_about_adapter = false, const char* name = "second-search") {
  return Decide(Find(name), alone, behind, is_about_adapter);
}

TEST(VerdictTest, AloneTheModuleIsTakenAsItIs) {
  EXPECT_EQ(DecideOn(kMet, {}), Verdict::kMet);
  EXPECT_EQ(DecideOn(kUnmet, {}), Verdict::kNotMet);
  EXPECT_EQ(DecideOn(kUnknown, {}), Verdict::kNotReached);
  EXPECT_EQ(DecideOn(kNotConcerned, {}), Verdict::kNotConcerned);
  EXPECT_EQ(DecideOn(kNotTried, {}), Verdict::kNotTried);
}

TEST(VerdictTest, TheAdapterHelpsOrDoesNot) {
  EXPECT_EQ(DecideOn(kUnmet, kMet), Verdict::kThroughAdapter);
  EXPECT_EQ(DecideOn(kUnmet, kNotConcerned), Verdict::kThroughAdapter);
  EXPECT_EQ(DecideOn(kUnmet, kUnmet), Verdict::kNotMet);
  EXPECT_EQ(DecideOn(kUnknown, kMet), Verdict::kThroughAdapter);
  EXPECT_EQ(DecideOn(kUnknown, kUnmet), Verdict::kNotMet);
  EXPECT_EQ(DecideOn(kNotConcerned, kUnmet), Verdict::kNotMet);
  EXPECT_EQ(DecideOn(kNotTried, kMet), Verdict::kThroughAdapter);
}

TEST(VerdictTest, WhatIsNotKnownBehindTheAdapterIsNotHeldAgainstTheModule) {
  EXPECT_EQ(DecideOn(kUnmet, kUnknown), Verdict::kNotReached);
  EXPECT_EQ(DecideOn(kUnmet, kNotTried), Verdict::kNotReached);
  EXPECT_EQ(DecideOn(kUnknown, kUnknown), Verdict::kNotReached);
  EXPECT_EQ(DecideOn(kNotTried, kNotTried), Verdict::kNotTried);
  // The adapter has nothing to do with it.
  EXPECT_EQ(DecideOn(kUnmet, kUnknown, false, "login-state"), Verdict::kNotMet);
}

TEST(VerdictTest, WhatTheModuleDoesWellIsJudgedAgainOnlyWhenTheAdapterIsTheSubject) {
  EXPECT_EQ(DecideOn(kMet, kUnmet), Verdict::kMet);
  EXPECT_EQ(DecideOn(kMet, kUnmet, true), Verdict::kNotMet);
  EXPECT_EQ(DecideOn(kMet, kUnknown, true), Verdict::kNotReached);
  EXPECT_EQ(DecideOn(kMet, kMet, true), Verdict::kMet);
}

TEST(VerdictTest, OneThatIsNotMetSpoilsAllAndWhatIsNotJudgedSpoilsTheRest) {
  using enum Verdict;
  EXPECT_EQ(Conclude({kMet, kNotTried, Verdict::kNotConcerned}, true), Conclusion::kWorks);
  EXPECT_EQ(Conclude({kMet, kThroughAdapter}, true), Conclusion::kWorksWithAdapter);
  EXPECT_EQ(Conclude({kThroughAdapter, kNotMet}, true), Conclusion::kDoesNotWork);
  EXPECT_EQ(Conclude({kMet, kNotReached}, true), Conclusion::kNotJudged);
  EXPECT_EQ(Conclude({kMet}, false), Conclusion::kNotJudged);
  EXPECT_EQ(Conclude({kNotMet}, false), Conclusion::kDoesNotWork);
}

TEST(VerdictTest, AdviceNamesTheRules) {
  const auto advise = [](const char* name) {
    return Advise(Find(name), Verdict::kThroughAdapter, Outcome::kUnmet);
  };
  EXPECT_EQ(advise("ecdsa-der"), "Put the adapter in front of it (rule ecdsa).");
  EXPECT_THAT(advise("decrypt-raw"), HasSubstr("(rules raw-rsa, missing-raw-rsa)"));
  EXPECT_EQ(advise("second-search"), "Put the adapter in front of it.");
  EXPECT_THAT(advise("card-number"), HasSubstr("`card-number = serial`"));
  EXPECT_EQ(Advise(Find("token"), Verdict::kThroughAdapter, Outcome::kUnknown), "");
  EXPECT_EQ(Advise(Find("token"), Verdict::kMet, Outcome::kMet), "");
  EXPECT_EQ(Advise(Find("second-search"), Verdict::kNotMet, Outcome::kUnmet),
            "Ask the module's maker.");
}

TEST(VerdictTest, EveryExpectationHasANameOfItsOwnAndAdviceAndItsRulesExist) {
  std::set<std::string_view> names;
  for (const Expectation& expectation : Expectations()) {
    EXPECT_TRUE(names.insert(expectation.name).second) << expectation.name;
    EXPECT_TRUE(expectation.advice.ends_with('.')) << expectation.name;
    EXPECT_EQ(RuleNames(expectation).size(), expectation.rules.size()) << expectation.name;
    EXPECT_EQ(expectation.rules.empty(), expectation.help != Help::kByRules) << expectation.name;
  }
}

TEST(SameTokenTest, SerialNumberAndLabelTellTokensApart) {
  EXPECT_TRUE(IsSameToken("1", "4711", "1", "4711"));
  EXPECT_FALSE(IsSameToken("1", "4711", "2", "4711"));
  EXPECT_FALSE(IsSameToken("1", "4711", "1", "4712"));
  EXPECT_FALSE(IsSameToken("", "4711", "", "4712"));
}

TEST(SameTokenTest, ASerialNumberInFrontOfTheLabelMakesNoOtherToken) {
  EXPECT_TRUE(IsSameToken("12", " My card", "12", "12 My card"));
  EXPECT_TRUE(IsSameToken("12", "", "12", "12"));
  const std::string label = "A label of thirty-two characters";
  EXPECT_TRUE(IsSameToken("12", label, "12", ("12 " + label).substr(0, 32)));
  EXPECT_FALSE(IsSameToken("12", " My card", "12", "12 Your card"));
}

TEST(LeftOutTest, EveryCertificateThatIsNotShownIsNamedWithTheReason) {
  const auto certificate = [](const char* label, const std::string& id, int size, bool is_good) {
    return json{{"label", label}, {"id", id}, {"size", size}, {"parseable", is_good}};
  };
  const json alone = {
      {"certificates",
       {certificate("Müller", "01", 800, true), certificate("long", "02", 4097, true),
        certificate("id", std::string(512, 'a'), 800, true), certificate("junk", "03", 8, false),
        certificate("CA", "04", 900, true), certificate("twin", "01", 800, true)}}};
  const json behind = {
      {"certificates",
       {certificate("Mueller", "01", 800, true), certificate("twin", "01", 800, true)}}};
  std::vector<std::string> reasons;
  for (const json& one : LeftOut(alone, behind)) {
    reasons.push_back(one.at("label").get<std::string>() + ": " +
                      one.at("reason").get<std::string>());
  }
  EXPECT_THAT(reasons, testing::ElementsAre("long: it has more than 4096 bytes",
                                            "id: its CKA_ID has more than 255 bytes",
                                            "junk: its value is no certificate",
                                            "CA: it has no key, as a CA's"));
  EXPECT_TRUE(LeftOut(alone, json::object()).empty());
}

}  // namespace
}  // namespace kelvrin::modulecheck
