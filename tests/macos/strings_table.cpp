#include "tests/macos/strings_table.h"

#include <llvm/Support/ConvertUTF.h>

#include <stdexcept>

#include "tests/macos/source_tokens.h"

namespace kelvrin::macos {
namespace {

bool IsUtf8(const std::string& text) {
  const auto* begin = reinterpret_cast<const llvm::UTF8*>(text.data());
  return llvm::isLegalUTF8String(&begin, begin + text.size()) != 0;
}

}  // namespace

StringsTable ReadStringsTable(const std::string& table) {
  if (!IsUtf8(table)) throw std::runtime_error("a table of texts that is not UTF-8");
  const std::vector<SourceToken> tokens = ReadTokens(table);  // the same comments and literals
  const auto is = [&](size_t at, TokenKind kind, const std::string& text) {
    return tokens[at].kind == kind && (kind == TokenKind::kLiteral || tokens[at].text == text);
  };
  StringsTable result;
  for (size_t at = 0; at < tokens.size(); at += 4) {
    if (tokens.size() - at < 4 || !is(at, TokenKind::kLiteral, "") ||
        !is(at + 1, TokenKind::kOther, "=") || !is(at + 2, TokenKind::kLiteral, "") ||
        !is(at + 3, TokenKind::kOther, ";")) {
      throw std::runtime_error("a table of texts with something else at " + tokens[at].text);
    }
    const std::string& key = tokens[at].text;
    if (!result.texts.emplace(key, tokens[at + 2].text).second) {
      result.findings.push_back(key + " is there twice");
    }
  }
  return result;
}

bool HasDamagedLetters(const std::string& text) {
  if (text.find("\xEF\xBF\xBD") != std::string::npos) return true;  // the replacement character
  for (size_t at = 0; at + 2 < text.size(); ++at) {
    // U+00C3 before one of U+0080 to U+00BF was a letter with an umlaut.
    if (text.compare(at, 3, "\xC3\x83\xC2") == 0) return true;
    // Accents of their own: U+0300 to U+036F.
    const auto second = static_cast<unsigned char>(text[at + 1]);
    if (text[at] == '\xCC' || (text[at] == '\xCD' && second < 0xB0)) return true;
  }
  return false;
}

}  // namespace kelvrin::macos
