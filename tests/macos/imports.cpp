#include "tests/macos/imports.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "tests/macos/expected_binaries.h"
#include "tests/macos/findings.h"

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;

// The install names of the libraries in the order in which they are numbered, from 1 on.
std::vector<std::string> LoadedLibraries(const MachOObjectFile& file) {
  std::vector<std::string> names;
  for (const auto& command : file.load_commands()) {
    switch (command.C.cmd) {
      case llvm::MachO::LC_LOAD_DYLIB:
      case llvm::MachO::LC_LOAD_WEAK_DYLIB:
      case llvm::MachO::LC_REEXPORT_DYLIB:
      case llvm::MachO::LC_LOAD_UPWARD_DYLIB:
      case llvm::MachO::LC_LAZY_LOAD_DYLIB:
        names.emplace_back(command.Ptr + file.getDylibIDLoadCommand(command).dylib.name);
        break;
      default:
        break;
    }
  }
  return names;
}

std::string LibraryOf(const std::vector<std::string>& libraries, int number) {
  if (number >= 1 && static_cast<size_t>(number) <= libraries.size()) {
    return libraries[static_cast<size_t>(number) - 1];
  }
  switch (number) {
    case llvm::MachO::BIND_SPECIAL_DYLIB_SELF:
      return "(itself)";
    case llvm::MachO::BIND_SPECIAL_DYLIB_MAIN_EXECUTABLE:
      return "(the executable)";
    case llvm::MachO::BIND_SPECIAL_DYLIB_FLAT_LOOKUP:
      return "(any library)";
    default:
      return "(library " + std::to_string(number) + ")";
  }
}

// The number in a symbol's description, where the special ones are unsigned.
int LibraryNumber(uint16_t description) {
  const int number = llvm::MachO::GET_LIBRARY_ORDINAL(description);
  if (number == llvm::MachO::EXECUTABLE_ORDINAL) {
    return llvm::MachO::BIND_SPECIAL_DYLIB_MAIN_EXECUTABLE;
  }
  if (number == llvm::MachO::DYNAMIC_LOOKUP_ORDINAL) {
    return llvm::MachO::BIND_SPECIAL_DYLIB_FLAT_LOOKUP;
  }
  return number;
}

// Adds what a bind table names.
template <typename Table>
void Add(const std::vector<std::string>& libraries, Table table, llvm::Error& error,
         std::set<Import>& imports) {
  for (const auto& bind : table) {
    const bool weak = (bind.flags() & llvm::MachO::BIND_SYMBOL_FLAGS_WEAK_IMPORT) != 0;
    imports.insert({bind.symbolName().str(), LibraryOf(libraries, bind.ordinal()), weak});
  }
  if (error) throw std::runtime_error("bind table: " + llvm::toString(std::move(error)));
}

bool HasBindTables(const MachOObjectFile& file) {
  bool has = false;
  for (const auto& command : file.load_commands()) {
    if (command.C.cmd == llvm::MachO::LC_DYLD_INFO_ONLY) has = true;
    if (command.C.cmd == llvm::MachO::LC_DYLD_CHAINED_FIXUPS) return false;
  }
  return has;
}

}  // namespace

std::vector<Import> BoundImports(const Slice& slice) {
  MachOObjectFile& file = *slice.file;
  if (!HasBindTables(file)) throw std::runtime_error(slice.architecture + ": no bind tables");
  const auto libraries = LoadedLibraries(file);
  std::set<Import> imports;
  llvm::Error error = llvm::Error::success();
  Add(libraries, file.bindTable(error), error, imports);
  llvm::Error lazy_error = llvm::Error::success();
  Add(libraries, file.lazyBindTable(lazy_error), lazy_error, imports);
  return {imports.begin(), imports.end()};
}

std::vector<Import> UndefinedSymbols(const Slice& slice) {
  const auto libraries = LoadedLibraries(*slice.file);
  std::set<Import> symbols;
  for (const auto& symbol : slice.file->symbols()) {
    const auto entry = slice.file->getSymbol64TableEntry(symbol.getRawDataRefImpl());
    if ((entry.n_type & llvm::MachO::N_TYPE) != llvm::MachO::N_UNDF) continue;
    symbols.insert({llvm::cantFail(symbol.getName()).str(),
                    LibraryOf(libraries, LibraryNumber(entry.n_desc)),
                    (entry.n_desc & llvm::MachO::N_WEAK_REF) != 0});
  }
  return {symbols.begin(), symbols.end()};
}

std::vector<std::string> SharedNames(const Slice& slice) {
  std::set<std::string> names;
  llvm::Error error = llvm::Error::success();
  for (const auto& bind : slice.file->weakBindTable(error)) names.insert(bind.symbolName().str());
  if (error) throw std::runtime_error("bind table: " + llvm::toString(std::move(error)));
  return {names.begin(), names.end()};
}

std::vector<std::string> ImportLines(const MachOFile& file) {
  std::map<std::string, std::vector<std::string>> architectures;
  for (const Slice& slice : file.slices()) {
    for (const Import& import : BoundImports(slice)) {
      architectures[ShortName(import.library) + " " + import.symbol].push_back(slice.architecture);
    }
  }
  std::vector<std::string> lines;
  lines.reserve(architectures.size());
  for (const auto& [line, of] : architectures) {
    lines.push_back(of.size() == file.slices().size() ? line : line + " " + Joined(of));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace kelvrin::macos
