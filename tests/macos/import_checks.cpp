#include "tests/macos/import_checks.h"

#include <llvm/ADT/STLExtras.h>

#include <algorithm>
#include <sstream>

#include "tests/macos/exports.h"

namespace kelvrin::macos {
namespace {

std::set<std::string> Described(const std::vector<Import>& imports) {
  std::set<std::string> texts;
  for (const Import& import : imports) {
    texts.insert(import.symbol + " of " + import.library +
                 (import.may_be_missing ? " (may be missing)" : ""));
  }
  return texts;
}

std::set<std::string> SymbolsOf(const std::vector<Import>& imports) {
  std::set<std::string> symbols;
  for (const Import& import : imports) symbols.insert(import.symbol);
  return symbols;
}

// Names that C++ needs at run time: mangled ones (of operators, of std), exceptions, unwinding.
bool IsOfCxxRuntime(const std::string& symbol) {
  static const std::vector<std::string> beginnings = {"__Z", "___cxa_", "___gxx_", "__Unwind_"};
  return llvm::any_of(beginnings, [&](const auto& text) { return symbol.starts_with(text); });
}

}  // namespace

Findings CheckImportTables(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    const auto bound = BoundImports(slice);
    ExpectSame(slice.architecture + ": bind tables", Described(UndefinedSymbols(slice)),
               Described(bound), findings);
    for (const Import& import : bound) {
      if (!import.may_be_missing) continue;
      findings.push_back(slice.architecture + ": " + import.symbol + " may be missing");
    }
    const auto imported = SymbolsOf(bound);
    const auto defined = ExternalSymbols(slice);
    for (const std::string& name : SharedNames(slice)) {
      if (imported.contains(name) || defined.contains(name)) continue;
      findings.push_back(slice.architecture + ": " + name + " is neither defined nor imported");
    }
  }
  return findings;
}

Findings CheckImportsAreInStubs(const MachOFile& file,
                                const std::map<std::string, LinkStub>& stubs) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    for (const Import& import : BoundImports(slice)) {
      const auto stub = stubs.find(import.library);
      if (stub == stubs.end()) {
        findings.push_back(slice.architecture + ": " + import.symbol + " is of " + import.library +
                           ", which has no stub");
        continue;
      }
      const auto symbols = stub->second.symbols.find(slice.architecture);
      if (symbols == stub->second.symbols.end() || !symbols->second.contains(import.symbol)) {
        findings.push_back(slice.architecture + ": the stub of " + import.library +
                           " does not export " + import.symbol);
      }
    }
  }
  return findings;
}

Findings CheckImportList(const MachOFile& file, const std::string& list) {
  std::vector<std::string> lines;
  std::istringstream stream(list);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  Findings findings;
  if (!std::is_sorted(lines.begin(), lines.end())) findings.emplace_back("the list is not sorted");
  const std::set<std::string> expected(lines.begin(), lines.end());
  if (expected.size() != lines.size()) findings.emplace_back("the list has a line twice");
  const auto got = ImportLines(file);
  ExpectSame("imports", expected, {got.begin(), got.end()}, findings);
  return findings;
}

Findings CheckNoCxxRuntime(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    for (const Import& import : BoundImports(slice)) {
      const std::string library = ShortName(import.library);
      if (IsOfCxxRuntime(import.symbol) || library.starts_with("libc++")) {
        findings.push_back(slice.architecture + ": " + import.symbol + " of " + library +
                           " is of the C++ runtime");
      }
    }
    for (const std::string& name : SharedNames(slice)) {
      if (!IsOfCxxRuntime(name)) continue;
      findings.push_back(slice.architecture + ": " + name + " is shared with the C++ runtime");
    }
  }
  return findings;
}

Findings CheckImportsAreOldEnough(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    for (const Import& import : BoundImports(slice)) {
      const std::string reason = NewerThanMacOS1014(import.symbol);
      if (reason.empty()) continue;
      findings.emplace_back(slice.architecture).append(": " + import.symbol + ": " + reason);
    }
  }
  return findings;
}

Findings CheckStubIsOldEnough(const LinkStub& stub) {
  Findings findings;
  for (const auto& [architecture, symbols] : stub.symbols) {
    for (const std::string& symbol : symbols) {
      const std::string reason = NewerThanMacOS1014(symbol);
      if (reason.empty()) continue;
      findings.emplace_back(architecture).append(": ").append(symbol).append(": ").append(reason);
    }
  }
  return findings;
}

}  // namespace kelvrin::macos
