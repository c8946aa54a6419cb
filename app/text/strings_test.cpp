// The strings files are complete, alike, and used.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "app/text/testing/strings_file.h"

namespace kelvrin::app {
namespace {

using testing::IsEmpty;

std::set<std::string> Found(const std::string& text, const std::string& pattern, int group = 0) {
  const std::regex regex(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator each(text.begin(), text.end(), regex), end; each != end; ++each) {
    found.insert((*each)[static_cast<size_t>(group)]);
  }
  return found;
}

// All that the application's own sources, or those of one of its rooms, say.
std::string Sources(const std::string& room = "") {
  std::string text;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(KELVRIN_APP + room)) {
    const std::string path = entry.path().string();
    const std::string ending = entry.path().extension().string();
    if (ending != ".cpp" && ending != ".mm") continue;
    if (path.find("/testing/") != std::string::npos || path.ends_with("_test" + ending)) continue;
    std::ifstream file(path);
    text.append(std::istreambuf_iterator<char>(file), {});
  }
  return text;
}

TEST(StringsTest, BothLanguagesHaveTheSameKeysAndPlaces) {
  const auto english = ReadStrings("en");
  const auto german = ReadStrings("de");
  ASSERT_GT(english.size(), 50U);
  for (const auto& [key, text] : english) {
    const auto other = german.find(key);
    ASSERT_NE(other, german.end()) << key;
    EXPECT_EQ(Found(text, R"(\{\w+\})"), Found(other->second, R"(\{\w+\})")) << key;
    EXPECT_NE(text, "") << key;
    EXPECT_NE(other->second, "") << key;
  }
  EXPECT_EQ(english.size(), german.size());
}

// A key stands in a call that looks it up, or as itself in the room that puts texts together.
TEST(StringsTest, EveryKeyThatIsUsedExists) {
  std::set<std::string> used = Found(Sources("/text"), R"re("([A-Z][A-Z0-9_]+)")re", 1);
  used.merge(Found(Sources(), R"re((?:Get|Fill|lookup_?)\("([^"]+)")re", 1));
  used.merge(Found(Sources(), R"re(\btext:@"([^"]+)")re", 1));
  ASSERT_GT(used.size(), 50U);
  const auto strings = ReadStrings("en");
  for (const std::string& key : used) {
    const bool is_counted = strings.contains(key + "_1") && strings.contains(key + "_N");
    // The sentences over a card of ours are put together of others.
    const bool is_of_cards = strings.contains(key + "_EXPLANATION");
    EXPECT_TRUE(strings.contains(key) || is_counted || is_of_cards) << key;
  }
}

TEST(StringsTest, EveryKeyIsUsed) {
  const std::set<std::string> words = Found(Sources(), R"re("([A-Z][A-Z0-9_]+)")re", 1);
  const auto stands = [&](const std::string& key, const std::string& ending) {
    return key.ends_with(ending) && words.contains(key.substr(0, key.size() - ending.size()));
  };
  std::vector<std::string> unused;
  for (const auto& [key, text] : ReadStrings("en")) {
    const bool is_used = stands(key, "") || stands(key, "_0") || stands(key, "_1") ||
                         stands(key, "_N") || stands(key, "_EXPLANATION");
    if (!is_used) unused.push_back(key);
  }
  EXPECT_THAT(unused, IsEmpty());
}

}  // namespace
}  // namespace kelvrin::app
