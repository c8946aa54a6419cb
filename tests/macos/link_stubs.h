// What the libraries of macOS export, by the text files (.tbd) that stand for them at a link.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/macos/findings.h"

namespace kelvrin::macos {

struct LinkStub {
  std::string install_name;
  std::string compatibility;  // "300.0.0"
  // Symbols as an object file names them, by architecture ("x86_64", "arm64"); those of libraries
  // that it passes on are among them, those hidden from the oldest system are not.
  std::map<std::string, std::set<std::string>> symbols;
};

// Reads one. Throws std::runtime_error when it is none.
LinkStub ReadLinkStub(const std::filesystem::path& path);

// By install name: those below `folder`, and libSystem's, which lies in `sdk`. Throws
// std::runtime_error when one cannot be read, or when two have the same name.
std::map<std::string, LinkStub> ReadLinkStubs(const std::filesystem::path& folder,
                                              const std::filesystem::path& sdk);

// The stubs are those of the known libraries, with their install names and compatibility versions,
// and nothing else.
Findings CheckLinkStubs(const std::map<std::string, LinkStub>& stubs);

}  // namespace kelvrin::macos
