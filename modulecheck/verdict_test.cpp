#include "modulecheck/verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "modulecheck/listing.h"

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

// A row without `behind` is of the module alone.
TEST(VerdictTest, TheAdapterHelpsWhereItIsKnownToAndTheModuleIsNotBlamedForWhatIsNotKnown) {
  struct Case {
    Judgement alone;
    std::optional<Judgement> behind;
    Verdict verdict;
    bool is_about_adapter = false;
    const char* name = "second-search";
  };
  const Case cases[] = {
      {kMet, {}, Verdict::kMet},
      {kUnmet, {}, Verdict::kNotMet},
      {kUnknown, {}, Verdict::kNotReached},
      {kNotConcerned, {}, Verdict::kNotConcerned},
      {kNotTried, {}, Verdict::kNotTried},
      {kUnmet, kMet, Verdict::kThroughAdapter},
      {kUnmet, kNotConcerned, Verdict::kThroughAdapter},
      {kUnmet, kUnmet, Verdict::kNotMet},
      {kUnknown, kMet, Verdict::kThroughAdapter},
      {kUnknown, kUnmet, Verdict::kNotMet},
      {kNotConcerned, kUnmet, Verdict::kNotMet},
      {kNotTried, kMet, Verdict::kThroughAdapter},
      {kUnmet, kUnknown, Verdict::kNotReached},
      {kUnmet, kNotTried, Verdict::kNotReached},
      {kUnknown, kUnknown, Verdict::kNotReached},
      {kNotTried, kNotTried, Verdict::kNotTried},
      // The adapter has nothing to do with it.
      {kUnmet, kUnknown, Verdict::kNotMet, false, "login-state"},
      // What the module does well is judged again only when the adapter is the subject.
      {kMet, kUnmet, Verdict::kMet},
      {kMet, kUnmet, Verdict::kNotMet, true},
      {kMet, kUnknown, Verdict::kNotReached, true},
      {kMet, kMet, Verdict::kMet, true},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(&one - cases);
    EXPECT_EQ(Decide(Find(one.name), one.alone, one.behind, one.is_about_adapter), one.verdict);
  }
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
