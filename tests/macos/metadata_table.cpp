#include "tests/macos/metadata_table.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <stdexcept>

namespace kelvrin::macos {
namespace {

// The encoding of BOOL: signed char on x86-64, bool on arm64.
std::string WithBool(std::string text, const std::string& architecture) {
  static constexpr std::string_view kPlaceholder = "{BOOL}";
  const char* encoding = architecture == "x86_64" ? "c" : "B";
  for (size_t at = text.find(kPlaceholder); at != std::string::npos; at = text.find(kPlaceholder)) {
    text.replace(at, kPlaceholder.size(), encoding);
  }
  return text;
}

std::vector<std::string> Texts(const Metadata& metadata, const std::string& architecture) {
  std::vector<std::string> texts;
  texts.reserve(metadata.lines.size());
  for (const MetadataLine& line : metadata.lines) {
    texts.push_back(WithBool(line.text, architecture));
  }
  return texts;
}

// The lines that the other does not have.
std::vector<std::string> Without(const std::vector<std::string>& lines,
                                 const std::vector<std::string>& other) {
  std::vector<std::string> left;
  for (const std::string& line : lines) {
    if (std::ranges::count(lines, line) != std::ranges::count(other, line)) left.push_back(line);
  }
  return left;
}

// Compares what belongs to one class, category or protocol: first which lines there are, one with
// another where both have one of their own, then their order.
void CompareLines(const Metadata& expected, const Metadata& got, const std::string& architecture,
                  Findings& findings) {
  const std::string where = architecture + ": " + expected.name;
  const std::vector<std::string> want = Texts(expected, architecture);
  const std::vector<std::string> have = Texts(got, architecture);
  const std::vector<std::string> missing = Without(want, have);
  const std::vector<std::string> extra = Without(have, want);
  for (size_t i = 0; i < std::max(missing.size(), extra.size()); ++i) {
    if (i < missing.size()) {
      ExpectEqual(where, missing[i], i < extra.size() ? extra[i] : "none", findings);
    } else {
      findings.push_back(where + ": expected no " + extra[i]);
    }
  }
  if (!missing.empty() || !extra.empty()) return;
  for (size_t i = 0; i < want.size(); ++i) {
    ExpectEqual(where + ", line " + std::to_string(i + 1), want[i], have[i], findings);
  }
}

}  // namespace

std::vector<Metadata> ParseTable(std::string_view text) {
  std::vector<Metadata> table;
  std::istringstream stream{std::string(text)};
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() || line.starts_with("#")) continue;
    const size_t indent = line.find_first_not_of(' ');
    if (indent == 0) {
      // The name is two words; what follows is the heading.
      const size_t end = std::min(line.find(' ', line.find(' ') + 1), line.size());
      table.push_back({line.substr(0, end), line.substr(end), {}, 0});
    } else if (indent != std::string::npos && !table.empty()) {
      table.back().lines.push_back({line.substr(indent), 0});
    } else {
      throw std::runtime_error("no table: " + line);
    }
  }
  return table;
}

Findings Compare(const std::vector<Metadata>& table, const std::vector<Metadata>& actual,
                 const std::string& architecture) {
  Findings findings;
  std::vector<const Metadata*> left;
  left.reserve(actual.size());
  for (const Metadata& got : actual) left.push_back(&got);
  for (const Metadata& expected : table) {
    const auto found =
        std::ranges::find_if(left, [&](const Metadata* got) { return got->name == expected.name; });
    if (found == left.end()) {
      findings.push_back(architecture + ": expected " + expected.name + ", got none");
    } else {
      ExpectEqual(architecture, expected.name + expected.heading,
                  (*found)->name + (*found)->heading, findings);
      CompareLines(expected, **found, architecture, findings);
      left.erase(found);
    }
  }
  for (const Metadata* got : left) {
    findings.push_back(architecture + ": expected no " + got->name);
  }
  return findings;
}

Findings CheckMetadata(const MachOFile& file, std::string_view table) {
  Findings findings;
  const std::vector<Metadata> expected = ParseTable(table);
  std::vector<std::string> architectures;
  for (const Slice& slice : file.slices()) {
    architectures.push_back(slice.architecture);
    try {
      const Findings found = Compare(expected, ReadMetadata(slice), slice.architecture);
      findings.insert(findings.end(), found.begin(), found.end());
    } catch (const std::exception& error) {
      findings.push_back(slice.architecture + ": " + error.what());
    }
  }
  ExpectEqual("slices", "x86_64, arm64", Joined(architectures), findings);
  return findings;
}

}  // namespace kelvrin::macos
