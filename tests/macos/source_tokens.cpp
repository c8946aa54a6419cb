#include "tests/macos/source_tokens.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace kelvrin::macos {
namespace {

bool IsWordPart(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

// The character that a backslash and this one stand for.
char Unescaped(char character) {
  static const std::string letters = "nt\"'\\0";
  static const std::string meanings("\n\t\"'\\\0", 6);
  const size_t at = letters.find(character);
  if (at == std::string::npos) {
    throw std::runtime_error(std::string("an escape that is not known: \\") + character);
  }
  return meanings[at];
}

class Tokenizer {
 public:
  explicit Tokenizer(const std::string& source) : source_(source) {}

  std::vector<SourceToken> Read() {
    while (at_ < source_.size()) ReadOne();
    return std::move(tokens_);
  }

 private:
  bool Begins(const std::string& text) const {
    return source_.compare(at_, text.size(), text) == 0;
  }

  // Goes behind the next occurrence of a text, or to the end.
  void SkipTo(const std::string& text) {
    const size_t found = source_.find(text, at_);
    at_ = found == std::string::npos ? source_.size() : found + text.size();
  }

  void ReadOne() {
    const char character = source_[at_];
    if (Begins("//")) {
      SkipTo("\n");
    } else if (Begins("/*")) {
      at_ += 2;
      SkipTo("*/");
    } else if (character == '"') {
      tokens_.push_back({TokenKind::kLiteral, Quoted('"')});
    } else if (character == '\'') {
      Quoted('\'');
    } else if (IsWordPart(character)) {
      AddWord();
    } else {
      if (std::isspace(static_cast<unsigned char>(character)) == 0) {
        tokens_.push_back({TokenKind::kOther, std::string(1, character)});
      }
      ++at_;
    }
  }

  // A literal between two quotes of a kind.
  std::string Quoted(char quote) {
    std::string text;
    for (++at_; at_ < source_.size() && source_[at_] != '\n'; ++at_) {
      if (source_[at_] == quote) {
        ++at_;
        return text;
      }
      const bool escaped = source_[at_] == '\\' && at_ + 1 < source_.size();
      text += escaped ? Unescaped(source_[++at_]) : source_[at_];
    }
    throw std::runtime_error("a literal that does not end: " + text);
  }

  void AddWord() {
    const bool number = std::isdigit(static_cast<unsigned char>(source_[at_])) != 0;
    const size_t begin = at_;
    while (at_ < source_.size() && (IsWordPart(source_[at_]) || (number && source_[at_] == '\''))) {
      ++at_;
    }
    const std::string word = source_.substr(begin, at_ - begin);
    static const std::vector<std::string> prefixes = {"R", "u8R", "u8", "u", "U", "L"};
    if (at_ < source_.size() && source_[at_] == '"' && std::ranges::count(prefixes, word) > 0) {
      throw std::runtime_error("a literal of another kind: " + word + "\"");
    }
    tokens_.push_back({TokenKind::kWord, word});
  }

  const std::string& source_;
  size_t at_ = 0;
  std::vector<SourceToken> tokens_;
};

}  // namespace

std::vector<SourceToken> ReadTokens(const std::string& source) { return Tokenizer(source).Read(); }

std::vector<SourceToken> JoinLiterals(const std::vector<SourceToken>& tokens) {
  std::vector<SourceToken> joined;
  for (const SourceToken& token : tokens) {
    const bool follows = !joined.empty() && joined.back().kind == TokenKind::kLiteral;
    if (follows && token.kind == TokenKind::kLiteral) {
      joined.back().text += token.text;
    } else {
      joined.push_back(token);
    }
  }
  return joined;
}

std::vector<std::filesystem::path> ShippedSources(const std::filesystem::path& folder,
                                                  const std::vector<std::string>& extensions) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::filesystem::path& path = entry.path();
    if (std::ranges::count(extensions, path.extension().string()) > 0 &&
        !path.stem().string().ends_with("_test")) {
      paths.push_back(path);
    }
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace kelvrin::macos
