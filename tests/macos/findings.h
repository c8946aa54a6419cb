// What a check finds wrong: a line for each difference, none when all is well.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace kelvrin::macos {

using Findings = std::vector<std::string>;

// Adds a line when the two differ. `what` says what they are, and of which slice.
inline void ExpectEqual(const std::string& what, const std::string& expected,
                        const std::string& got, Findings& findings) {
  if (expected != got) findings.push_back(what + ": expected " + expected + ", got " + got);
}

// Adds a line for each member that only one of the two has.
inline void ExpectSame(const std::string& what, const std::set<std::string>& expected,
                       const std::set<std::string>& got, Findings& findings) {
  for (const std::string& member : expected) {
    if (!got.contains(member)) ExpectEqual(what, member, "none", findings);
  }
  for (const std::string& member : got) {
    if (!expected.contains(member)) findings.emplace_back(what).append(": expected no " + member);
  }
}

// The items with commas between them, or "none".
inline std::string Joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
  return items.empty() ? "none" : text;
}

}  // namespace kelvrin::macos
