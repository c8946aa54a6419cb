#include "tests/macos/localisation.h"

#include "tests/macos/source_tokens.h"
#include "tests/macos/strings_table.h"
#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

using Tokens = std::vector<SourceToken>;

// Whether the token begins an argument that holds keys.
bool BeginsKeys(const Tokens& tokens, size_t at) {
  if (at < 1 || at + 1 >= tokens.size() || tokens[at + 1].text != ":") return false;
  return tokens[at].text == "localizedStringForKey" ||
         (tokens[at].text == "text" && tokens[at - 1].text == "self");
}

// Adds the literals up to the end of the message or to the next part of its name.
void AddKeys(const Tokens& tokens, size_t at, std::set<std::string>& keys) {
  for (int depth = 0; at < tokens.size(); ++at) {
    if (tokens[at].kind == TokenKind::kLiteral) {
      keys.insert(tokens[at].text);
    } else if (tokens[at].text == "[") {
      ++depth;
    } else if (depth == 0 && (tokens[at].text == "]" || tokens[at].text == "value")) {
      return;
    } else if (tokens[at].text == "]") {
      --depth;
    }
  }
}

bool HasGermanLetter(const StringsTable& table) {
  for (const auto& [key, text] : table.texts) {
    for (const char* letter : {"ä", "ö", "ü", "Ä", "Ö", "Ü", "ß"}) {
      if (text.find(letter) != std::string::npos) return true;
    }
  }
  return false;
}

}  // namespace

std::set<std::string> UsedTextKeys(const std::filesystem::path& sources) {
  std::set<std::string> keys;
  for (const auto& path : ShippedSources(sources, {".mm", ".h"})) {
    const Tokens tokens = ReadTokens(ReadFile(path));
    for (size_t at = 0; at < tokens.size(); ++at) {
      if (BeginsKeys(tokens, at)) AddKeys(tokens, at + 2, keys);
    }
  }
  return keys;
}

Findings CheckTexts(const std::filesystem::path& resources, const std::set<std::string>& used) {
  Findings findings;
  for (const std::string language : {"de", "en"}) {
    const std::string prefix = language + ": ";
    const auto path = resources / (language + ".lproj") / "Localizable.strings";
    StringsTable table;
    try {
      table = ReadStringsTable(ReadFile(path));
    } catch (const std::runtime_error& error) {
      findings.push_back(prefix + error.what());
      continue;
    }
    for (const std::string& finding : table.findings) findings.push_back(prefix + finding);
    std::set<std::string> keys;
    for (const auto& [key, text] : table.texts) {
      keys.insert(key);
      if (text.empty()) findings.push_back(prefix + key + " has no text");
      if (HasDamagedLetters(text)) findings.push_back(prefix + key + " is damaged");
    }
    ExpectSame(language, used, keys, findings);
    ExpectEqual(prefix + "letters of German", language == "de" ? "some" : "none",
                HasGermanLetter(table) ? "some" : "none", findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
