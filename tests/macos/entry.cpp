#include "tests/macos/entry.h"

#include <llvm/ADT/STLExtras.h>

#include <optional>
#include <stdexcept>

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;

// LC_MAIN's offset from the beginning of the slice.
std::optional<uint64_t> EntryOffset(const MachOObjectFile& file) {
  std::optional<uint64_t> offset;
  for (const auto& command : file.load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_MAIN) continue;
    if (offset) throw std::runtime_error("two commands LC_MAIN");
    offset = file.getEntryPointCommand(command).entryoff;
  }
  return offset;
}

// The section whose contents lie at an offset of the slice.
std::optional<llvm::MachO::section_64> SectionAt(const MachOObjectFile& file, uint64_t offset) {
  for (const auto& section : file.sections()) {
    const auto header = file.getSection64(section.getRawDataRefImpl());
    if (header.offset <= offset && offset < header.offset + header.size) return header;
  }
  return std::nullopt;
}

// The symbol whose stub lies at an offset of the section of stubs, by the indirect symbol table.
std::string StubAt(const MachOObjectFile& file, const llvm::MachO::section_64& stubs,
                   uint64_t offset) {
  const uint64_t within = offset - stubs.offset;
  if (stubs.reserved2 == 0 || within % stubs.reserved2 != 0) return "the middle of a stub";
  const auto position = static_cast<unsigned>(stubs.reserved1 + within / stubs.reserved2);
  const auto tables = file.getDysymtabLoadCommand();
  if (position >= tables.nindirectsyms) return "a stub of no symbol";
  const uint32_t symbol = file.getIndirectSymbolTableEntry(tables, position);
  if (symbol >= file.getSymtabLoadCommand().nsyms) return "a stub of no symbol";
  return "the stub of " + llvm::cantFail(file.getSymbolByIndex(symbol)->getName()).str();
}

// The names of the functions at an address.
std::vector<std::string> NamesAt(const MachOObjectFile& file, uint64_t address) {
  std::vector<std::string> names;
  for (const auto& symbol : file.symbols()) {
    const auto entry = file.getSymbol64TableEntry(symbol.getRawDataRefImpl());
    if ((entry.n_type & llvm::MachO::N_TYPE) != llvm::MachO::N_SECT) continue;
    if (entry.n_value != address) continue;
    names.push_back(llvm::cantFail(file.getSymbolName(symbol.getRawDataRefImpl())).str());
  }
  return names;
}

const char* const kOwnFunction = "a function of its own";

// What the slice begins with. A function of its own may have the given name, or none.
std::string Entry(const MachOObjectFile& file, const std::string& name) {
  const auto offset = EntryOffset(file);
  if (!offset) return "none";
  const auto section = SectionAt(file, *offset);
  if (!section) return "something outside all sections";
  if ((section->flags & llvm::MachO::SECTION_TYPE) == llvm::MachO::S_SYMBOL_STUBS) {
    return StubAt(file, *section, *offset);
  }
  if ((section->flags & llvm::MachO::S_ATTR_PURE_INSTRUCTIONS) == 0) return "no code";
  // Offsets of the slice, since code begins where the first segment does.
  if (!llvm::is_contained(file.getFunctionStarts(), *offset)) return "the middle of a function";
  const auto names = NamesAt(file, section->addr + (*offset - section->offset));
  return names.empty() || llvm::is_contained(names, name) ? kOwnFunction
                                                          : "the function " + Joined(names);
}

}  // namespace

Findings CheckEntry(const MachOFile& file, const Binary& expected) {
  std::string wanted = "none";
  if (!expected.entry.empty()) {
    wanted = expected.entry_is_imported ? "the stub of " + expected.entry : kOwnFunction;
  }
  Findings findings;
  for (const Slice& slice : file.slices()) {
    ExpectEqual(slice.architecture + ": entry", wanted, Entry(*slice.file, expected.entry),
                findings);
  }
  return findings;
}

}  // namespace kelvrin::macos
