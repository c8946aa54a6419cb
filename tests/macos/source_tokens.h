// C++ and Objective-C++ sources, token by token: just enough to find calls and their literals.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelvrin::macos {

enum class TokenKind { kWord, kLiteral, kOther };

struct SourceToken {
  TokenKind kind = TokenKind::kOther;
  std::string text;  // a word, the bytes that a string literal stands for, or one other character
};

// The tokens of a source, without comments. Throws std::runtime_error for a literal that does not
// end, a raw or a wide literal, and an escape other than \n, \t, \", \', \\ and \0.
std::vector<SourceToken> ReadTokens(const std::string& source);

// The same with literals that stand beside each other made one.
std::vector<SourceToken> JoinLiterals(const std::vector<SourceToken>& tokens);

// The sources of a folder that ship: those with the extensions, in the order of their names,
// without the tests.
std::vector<std::filesystem::path> ShippedSources(const std::filesystem::path& folder,
                                                  const std::vector<std::string>& extensions);

}  // namespace kelvrin::macos
