// The Objective-C metadata of a Mach-O slice: classes, categories and protocols, as lines of text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// One instance variable, property or method:
//   ivar NAME TYPE
//   property NAME ATTRIBUTES        "class property" for one of the class
//   - SELECTOR TYPES                "+" for a class method; in a protocol with the classes' names,
//   and
//                                   "optional" before it when it is
struct MetadataLine {
  std::string text;
  uint64_t address = 0;  // where the file has it
};

// A class, a category or a protocol.
struct Metadata {
  std::string name;     // "class NAME", "category CLASS(NAME)", "protocol NAME"
  std::string heading;  // " : SUPERCLASS <PROTOCOL, ...>", without what there is not
  std::vector<MetadataLine> lines;
  uint64_t address = 0;  // of its class_ro_t, category_t or protocol_t
};

// Reads everything that the slice's lists of classes, categories and protocols name, in the order
// of the lists. Throws std::runtime_error when they cannot be read.
std::vector<Metadata> ReadMetadata(const Slice& slice);

}  // namespace kelvrin::macos
