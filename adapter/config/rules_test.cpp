#include "adapter/config/rules.h"

#include <gtest/gtest.h>

#include <set>

namespace kelvrin::adapter {
namespace {

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

}  // namespace
}  // namespace kelvrin::adapter
