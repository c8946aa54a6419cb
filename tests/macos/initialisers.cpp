#include "tests/macos/initialisers.h"

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;

bool HoldsInitialisers(const llvm::MachO::section_64& section, llvm::StringRef name) {
  switch (section.flags & llvm::MachO::SECTION_TYPE) {
    case llvm::MachO::S_MOD_INIT_FUNC_POINTERS:
    case llvm::MachO::S_INIT_FUNC_OFFSETS:
    case llvm::MachO::S_THREAD_LOCAL_INIT_FUNCTION_POINTERS:
      return true;
    default:
      return name == "__objc_nlclslist" || name == "__objc_nlcatlist";
  }
}

}  // namespace

Findings CheckNothingRunsBeforeTheEntry(const MachOFile& file) {
  Findings findings;
  for (const Slice& slice : file.slices()) {
    for (const auto& section : slice.file->sections()) {
      const llvm::StringRef name = llvm::cantFail(section.getName());
      const auto header = slice.file->getSection64(section.getRawDataRefImpl());
      if (HoldsInitialisers(header, name)) {
        findings.push_back(slice.architecture + ": expected no initialisers, got section " +
                           name.str());
      }
    }
    for (const auto& command : slice.file->load_commands()) {
      if (command.C.cmd == llvm::MachO::LC_ROUTINES_64) {
        findings.push_back(slice.architecture + ": expected no initialisers, got LC_ROUTINES_64");
      }
    }
  }
  return findings;
}

}  // namespace kelvrin::macos
