#include "tests/macos/stub_uses.h"

#include <set>
#include <sstream>

#include "tests/macos/expected_binaries.h"

namespace kelvrin::macos {
namespace {

// Symbols by library, by its file name, and architecture.
using Uses = std::map<std::string, std::map<std::string, std::set<std::string>>>;

// A symbol with those that a stub cannot list without it.
std::vector<std::string> Together(const std::string& symbol) {
  static const std::vector<std::string> prefixes = {"_OBJC_CLASS_$_", "_OBJC_METACLASS_$_"};
  for (const std::string& prefix : prefixes) {
    if (!symbol.starts_with(prefix)) continue;
    const std::string name = symbol.substr(prefix.size());
    return {prefixes[0] + name, prefixes[1] + name};
  }
  return {symbol};
}

// Adds the lines of a list: "LIBRARY SYMBOL", and an architecture when it is only for that one.
void Add(const std::string& list, Uses& uses) {
  std::istringstream lines(list);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string library;
    std::string symbol;
    std::string only;
    words >> library >> symbol >> only;
    for (const char* architecture : {"x86_64", "arm64"}) {
      if (!only.empty() && only != architecture) continue;
      for (const std::string& name : Together(symbol)) uses[library][architecture].insert(name);
    }
  }
}

}  // namespace

Findings CheckStubsAreUsed(const std::map<std::string, LinkStub>& stubs,
                           const std::vector<std::string>& lists) {
  Uses uses;
  for (const std::string& list : lists) Add(list, uses);
  Findings findings;
  for (const auto& [install_name, stub] : stubs) {
    const std::string library = ShortName(install_name);
    if (library == "libSystem.B.dylib" || library == "libc++.1.dylib") continue;
    for (const char* architecture : {"x86_64", "arm64"}) {
      const auto symbols = stub.symbols.find(architecture);
      ExpectSame(architecture + (": stub of " + library), uses[library][architecture],
                 symbols == stub.symbols.end() ? std::set<std::string>() : symbols->second,
                 findings);
    }
  }
  return findings;
}

}  // namespace kelvrin::macos
