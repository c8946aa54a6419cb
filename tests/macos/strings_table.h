// Tables of localised texts: files Localizable.strings.
#pragma once

#include <map>
#include <string>

#include "tests/macos/findings.h"

namespace kelvrin::macos {

struct StringsTable {
  std::map<std::string, std::string> texts;  // by key
  Findings findings;                         // keys that are there twice
};

// Reads a table: lines `"KEY" = "TEXT";` and comments. Throws std::runtime_error for anything else,
// and for bytes that are not UTF-8.
StringsTable ReadStringsTable(const std::string& table);

// Whether letters were damaged on their way: UTF-8 that was read as Latin-1 and written as UTF-8
// again, letters taken apart into base and accent, or replacement characters.
bool HasDamagedLetters(const std::string& text);

}  // namespace kelvrin::macos
