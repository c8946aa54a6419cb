#include "tests/macos/exports.h"

#include <stdexcept>

namespace kelvrin::macos {
namespace {

// What the exports' table lists, which is what the loader looks at.
std::set<std::string> ExportedNames(const Slice& slice) {
  std::set<std::string> names;
  llvm::Error error = llvm::Error::success();
  for (const auto& entry : slice.file->exports(error)) {
    const bool passed_on = (entry.flags() & llvm::MachO::EXPORT_SYMBOL_FLAGS_REEXPORT) != 0;
    names.insert(entry.name().str() + (passed_on ? " (passed on)" : ""));
  }
  if (error) throw std::runtime_error("table of exports: " + llvm::toString(std::move(error)));
  return names;
}

}  // namespace

std::set<std::string> ExternalSymbols(const Slice& slice) {
  std::set<std::string> names;
  for (const auto& symbol : slice.file->symbols()) {
    const auto entry = slice.file->getSymbol64TableEntry(symbol.getRawDataRefImpl());
    if ((entry.n_type & llvm::MachO::N_STAB) != 0) continue;
    if ((entry.n_type & llvm::MachO::N_EXT) == 0 || (entry.n_type & llvm::MachO::N_PEXT) != 0) {
      continue;
    }
    if ((entry.n_type & llvm::MachO::N_TYPE) == llvm::MachO::N_UNDF) continue;
    names.insert(llvm::cantFail(symbol.getName()).str());
  }
  return names;
}

Findings CheckExports(const MachOFile& file, const Binary& expected) {
  const std::set<std::string> wanted(expected.exports.begin(), expected.exports.end());
  Findings findings;
  for (const Slice& slice : file.slices()) {
    ExpectSame(slice.architecture + ": exports", wanted, ExportedNames(slice), findings);
    ExpectSame(slice.architecture + ": external symbols", wanted, ExternalSymbols(slice), findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
