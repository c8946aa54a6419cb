// Holds Objective-C metadata against a table of what is expected.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"
#include "tests/macos/objc_metadata.h"

namespace kelvrin::macos {

// Reads a table: one line for each class, category and protocol, as in
//   class NAME : SUPERCLASS <PROTOCOL, ...>
//   category CLASS(NAME)
//   protocol NAME <PROTOCOL, ...>
// and, indented, the lines that belong to it, in order. "{BOOL}" stands for the processor's
// encoding of a BOOL; empty lines and lines that begin with # say nothing.
std::vector<Metadata> ParseTable(std::string_view text);

// Compares what a slice of an architecture has with a table. The order of classes, categories and
// protocols does not matter, that of the lines within does. Returns the findings, each with the
// architecture before it.
Findings Compare(const std::vector<Metadata>& table, const std::vector<Metadata>& actual,
                 const std::string& architecture);

// Compares both slices of a universal file with a table.
Findings CheckMetadata(const MachOFile& file, std::string_view table);

}  // namespace kelvrin::macos
