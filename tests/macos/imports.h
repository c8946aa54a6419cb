// What a slice takes from libraries.
#pragma once

#include <string>
#include <vector>

#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

struct Import {
  std::string symbol;
  // The install name of the library that has to have it; in brackets what stands in place of one,
  // such as "(any library)".
  std::string library;
  bool may_be_missing = false;  // the loader puts up with a library that lacks it

  auto operator<=>(const Import&) const = default;
};

// What the loader binds, by the bind tables: sorted, each once. Throws std::runtime_error when they
// cannot be read, or when the slice has none: fixup chains are not for macOS 10.14.
std::vector<Import> BoundImports(const Slice& slice);

// What is undefined by the symbol table: sorted, each once.
std::vector<Import> UndefinedSymbols(const Slice& slice);

// Names that are bound to whichever library defines them first, which are also this one's own.
std::vector<std::string> SharedNames(const Slice& slice);

// What a file imports, as imports/*.txt list it: one line each, "LIBRARY SYMBOL", with the
// architecture behind it when only one slice has it; sorted.
std::vector<std::string> ImportLines(const MachOFile& file);

}  // namespace kelvrin::macos
