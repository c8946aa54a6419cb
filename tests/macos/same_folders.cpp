#include "tests/macos/same_folders.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

std::string Described(const fs::directory_entry& entry) {
  std::ostringstream text;
  text << std::oct << static_cast<unsigned>(entry.symlink_status().permissions());
  if (entry.is_symlink()) {
    text << " link to " << fs::read_symlink(entry.path()).string();
  } else if (entry.is_directory()) {
    text << " folder";
  } else {
    text << std::dec << " file of " << entry.file_size() << " bytes";
  }
  return text.str();
}

std::map<std::string, std::string> Entries(const fs::path& folder) {
  std::map<std::string, std::string> entries;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    entries[entry.path().lexically_relative(folder)] = Described(entry);
  }
  return entries;
}

void ExpectSameBytes(const std::string& name, const fs::path& one, const fs::path& other,
                     Findings& findings) {
  if (fs::is_symlink(one) || !fs::is_regular_file(one)) return;
  const std::string expected = ReadFile(one);
  const std::string got = ReadFile(other);
  if (expected == got) return;
  const auto differs = std::ranges::mismatch(expected, got).in1 - expected.begin();
  findings.push_back(name + ": differs at byte " + std::to_string(differs));
}

}  // namespace

Findings CompareFolders(const fs::path& one, const fs::path& other) {
  Findings findings;
  const auto expected = Entries(one);
  const auto got = Entries(other);
  for (const auto& [name, description] : expected) {
    const auto found = got.find(name);
    const std::string found_description = found == got.end() ? "none" : found->second;
    ExpectEqual(name, description, found_description, findings);
    if (found_description == description) {
      ExpectSameBytes(name, one / name, other / name, findings);
    }
  }
  for (const auto& [name, description] : got) {
    if (!expected.contains(name)) ExpectEqual(name, "none", description, findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
