// What our headers of Apple's frameworks declare, by the compiler's syntax tree: C, which leaves no
// metadata, and who may be nil.
#pragma once

#include <filesystem>
#include <vector>

#include "tests/macos/header_compiler.h"
#include "tests/macos/objc_metadata.h"

namespace kelvrin::macos {

// Lists everything that the headers declare for arm64, in the form of declarations_c.txt, which
// describes it; the lines of each part are sorted. The compiler leaves its files in `folder`.
// Throws std::runtime_error when the headers do not compile, or have what is not understood.
std::vector<Metadata> ListHeaders(const HeaderFolders& headers, const HeaderCompiler& compiler,
                                  const std::filesystem::path& folder);

// Sorts the lines of each part of a table: their order has no meaning.
void SortLines(std::vector<Metadata>& parts);

}  // namespace kelvrin::macos
