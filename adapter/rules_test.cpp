#include "adapter/rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace kelvrin::adapter {
namespace {

using testing::UnorderedElementsAre;

// The names of the rules that apply.
std::vector<std::string> Applying(const Rules& rules) {
  std::vector<std::string> names;
  for (const RuleName& entry : kRuleNames) {
    if (rules.Has(entry.rule)) names.emplace_back(entry.name);
  }
  return names;
}

TEST(RulesTest, EachRuleHasANameOfItsOwnInTheOrderOfTheEnumeration) {
  std::set<std::string_view> names;
  std::size_t number = 0;
  for (const RuleName& entry : kRuleNames) {
    EXPECT_EQ(static_cast<std::size_t>(entry.rule), number++) << entry.name;
    EXPECT_TRUE(names.insert(entry.name).second) << entry.name;
    // A comma or a blank would part the name in the configuration.
    EXPECT_EQ(entry.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string_view::npos)
        << entry.name;
  }
}

TEST(RulesTest, NoneApplyUnlessAProfileIsTaken) { EXPECT_TRUE(Applying(Rules()).empty()); }

TEST(RulesTest, ForTheExtensionAllApply) {
  EXPECT_EQ(Applying(Rules::Extension()).size(), kRuleCount);
}

TEST(RulesTest, TheStandardProfileKeepsWhatAConformingCallerCannotNotice) {
  EXPECT_THAT(Applying(Rules::Standard()),
              UnorderedElementsAre("initialisation", "finished-searches", "worker-sessions",
                                   "search-memory"));
}

TEST(RulesTest, SwitchingOffTakesOneRuleAndOnceIsEnough) {
  for (const RuleName& entry : kRuleNames) {
    Rules rules = Rules::Extension();
    rules.SwitchOff(entry.rule);
    rules.SwitchOff(entry.rule);
    EXPECT_FALSE(rules.Has(entry.rule));
    EXPECT_EQ(Applying(rules).size(), kRuleCount - 1);
  }
}

}  // namespace
}  // namespace kelvrin::adapter
