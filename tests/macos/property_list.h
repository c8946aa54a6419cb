// Property lists, key by key.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tests/macos/findings.h"

namespace kelvrin::macos {

// Every value under the keys that lead to it, with slashes between them: {"NSExtension/X",
// "\"y\""}. Members of arrays count as keys "[0]", "[1]". A string is in quotation marks, a truth
// is `true` or `false`, an empty dictionary `{}`, an empty array `[]`; of other values only the
// kind is told.
using PropertyList = std::map<std::string, std::string>;

// A string's value as it stands in a PropertyList.
std::string Quoted(const std::string& text);

// Reads an XML property list whose root is a dictionary. Throws std::runtime_error when the file is
// none, or when a key is there twice.
PropertyList ReadPropertyList(const std::filesystem::path& path);

// A line for each key that is missing, too much or of another value. `what` begins the line.
Findings ComparePropertyLists(const std::string& what, const PropertyList& expected,
                              const PropertyList& got);

}  // namespace kelvrin::macos
