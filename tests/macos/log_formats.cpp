#include "tests/macos/log_formats.h"

#include <map>
#include <sstream>
#include <stdexcept>

#include "tests/macos/source_tokens.h"
#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

using Counts = std::map<std::string, int>;

std::string Literal(const std::string& text) {
  std::string literal;
  for (const char character : text) {
    if (character == '\n') {
      literal += "\\n";
    } else if (character == '"' || character == '\\') {
      literal += std::string("\\") + character;
    } else {
      literal += character;
    }
  }
  return '"' + literal + '"';
}

// How many arguments come before the format in a call; -1: this is no call that writes a line.
int ArgumentsBeforeFormat(const SourceToken& token) {
  if (token.kind != TokenKind::kWord || !token.text.starts_with("os_log")) return -1;
  if (token.text == "os_log_type_enabled" || token.text == "os_log_t" ||
      token.text == "os_log_type_t") {
    return -1;
  }
  return token.text == "os_log_with_type" ? 2 : 1;
}

// Where an argument of a call begins; `at` is its opening parenthesis.
size_t ArgumentOf(const std::vector<SourceToken>& tokens, size_t at, int number) {
  int depth = 0;
  for (; at < tokens.size() && number >= 0; ++at) {
    const bool other = tokens[at].kind == TokenKind::kOther;
    if (other && tokens[at].text == "(" && depth++ == 0) --number;
    if (other && tokens[at].text == ")" && --depth == 0) break;
    if (other && tokens[at].text == "," && depth == 1) --number;
  }
  return at;
}

void ExpectSameCounts(const std::string& what, const Counts& expected, const Counts& got,
                      Findings& findings) {
  const auto count = [](const Counts& counts, const std::string& text) {
    const auto found = counts.find(text);
    return found == counts.end() ? 0 : found->second;
  };
  std::set<std::string> all;
  for (const auto& [text, number] : expected) all.insert(text);
  for (const auto& [text, number] : got) all.insert(text);
  const std::string prefix = what + ": ";
  for (const std::string& text : all) {
    ExpectEqual(prefix + text, std::to_string(count(expected, text)),
                std::to_string(count(got, text)), findings);
  }
}

// The texts in the section. Throws std::runtime_error when there is none, when it is aligned, which
// would put more zeros between texts, and when it does not end with a text's end.
Counts TextsOfSection(const Slice& slice) {
  for (const llvm::object::SectionRef& section : slice.file->sections()) {
    const auto reference = section.getRawDataRefImpl();
    if (llvm::cantFail(section.getName()) != "__oslogstring" ||
        slice.file->getSectionFinalSegmentName(reference) != "__TEXT") {
      continue;
    }
    if (section.getAlignment().value() != 1) throw std::runtime_error("is aligned");
    llvm::StringRef bytes = llvm::cantFail(section.getContents());
    if (!bytes.ends_with(llvm::StringRef("", 1))) throw std::runtime_error("has no end");
    Counts texts;
    while (!bytes.empty()) {
      const auto [text, rest] = bytes.split('\0');
      ++texts[Literal(text.str())];
      bytes = rest;
    }
    return texts;
  }
  throw std::runtime_error("is missing");
}

}  // namespace

std::vector<LogFormat> FormatsOfSource(const std::string& name, const std::string& source) {
  const auto tokens = JoinLiterals(ReadTokens(source));
  std::vector<LogFormat> formats;
  for (size_t at = 0; at + 1 < tokens.size(); ++at) {
    const int before = ArgumentsBeforeFormat(tokens[at]);
    if (before < 0 || tokens[at + 1].text != "(") continue;
    const std::string place = name + " " + tokens[at].text;
    const size_t format = ArgumentOf(tokens, at + 1, before);
    // What follows ends the argument: the literal is all of it.
    if (format + 1 >= tokens.size() || tokens[format].kind != TokenKind::kLiteral ||
        (tokens[format + 1].text != "," && tokens[format + 1].text != ")")) {
      throw std::runtime_error(place + " with a format that is no literal");
    }
    formats.push_back({place, tokens[format].text});
  }
  return formats;
}

std::vector<LogFormat> FormatsOfExtension(const std::filesystem::path& source) {
  std::vector<LogFormat> formats;
  for (const std::string folder : {"token", "p11"}) {
    for (const auto& path : ShippedSources(source / folder, {".mm", ".cpp", ".h"})) {
      const std::string name = folder + "/" + path.filename().string();
      for (const LogFormat& format : FormatsOfSource(name, ReadFile(path))) {
        formats.push_back(format);
      }
    }
  }
  return formats;
}

std::string ListLine(const LogFormat& format) { return format.place + " " + Literal(format.text); }

Findings CheckFormatList(const std::vector<LogFormat>& formats, const std::string& list) {
  Counts expected;
  std::istringstream stream(list);
  for (std::string line; std::getline(stream, line);) ++expected[line];
  Counts got;
  for (const LogFormat& format : formats) ++got[ListLine(format)];
  Findings findings;
  ExpectSameCounts("sources", expected, got, findings);
  return findings;
}

Findings CheckLogSection(const MachOFile& file, const std::vector<LogFormat>& formats) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    const std::string what = slice.architecture + ": section __TEXT,__oslogstring";
    try {
      const Counts got = TextsOfSection(slice);
      Counts expected;
      for (const LogFormat& format : formats) ++expected[Literal(format.text)];
      ExpectSameCounts(what, expected, got, findings);
    } catch (const std::runtime_error& error) {
      findings.push_back(what + " " + error.what());
    }
  }
  return findings;
}

}  // namespace kelvrin::macos
