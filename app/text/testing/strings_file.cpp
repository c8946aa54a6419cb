#include "app/text/testing/strings_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

namespace kelvrin::app {
namespace {

std::string WithoutEscapes(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      plain += text[i];
    } else if (++i < text.size()) {
      plain += text[i] == 'n' ? '\n' : text[i];
    }
  }
  return plain;
}

Texts TextsIn(const std::string& language) {
  return Texts([language, strings = ReadStrings(language)](const char* key) {
    const auto found = strings.find(key);
    if (found != strings.end()) return found->second;
    ADD_FAILURE() << language << " has no " << key;
    return std::string(key);
  });
}

}  // namespace

std::map<std::string, std::string> ReadStrings(const std::string& language) {
  const std::regex entry(R"re("(\w+)" = "((?:[^"\\]|\\.)*)";)re");
  const std::regex comment(R"(/\*.*\*/)");
  std::ifstream file(std::string(KELVRIN_APP) + "/" + language + ".lproj/Localizable.strings");
  std::map<std::string, std::string> strings;
  for (std::string line; std::getline(file, line);) {
    std::smatch match;
    if (std::regex_match(line, match, entry)) {
      const bool is_new = strings.emplace(match[1], WithoutEscapes(match[2])).second;
      EXPECT_TRUE(is_new) << language << " has twice: " << match[1];
    } else {
      EXPECT_TRUE(line.empty() || std::regex_match(line, comment)) << language << ": " << line;
    }
  }
  return strings;
}

const Texts& English() {
  static const Texts texts = TextsIn("en");
  return texts;
}

const Texts& German() {
  static const Texts texts = TextsIn("de");
  return texts;
}

Both InBoth(const std::function<std::string(const Texts&)>& say) {
  return {say(English()), say(German())};
}

}  // namespace kelvrin::app
