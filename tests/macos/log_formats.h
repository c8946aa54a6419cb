// The formats of the lines that the extension writes to the unified log. The system reads them from
// a section of the executable.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

struct LogFormat {
  std::string place;  // the source file, and the macro: "token/Token.mm os_log_error"
  std::string text;   // the bytes of the format
};

// The formats of one source, in their order. `name` is the file's name in the places. Throws
// std::runtime_error when a line's format is no literal.
std::vector<LogFormat> FormatsOfSource(const std::string& name, const std::string& source);

// Those of all sources of the extension in the source folder, file by file.
std::vector<LogFormat> FormatsOfExtension(const std::filesystem::path& source);

// A line of log_formats.txt: the place, and the format as a literal.
std::string ListLine(const LogFormat& format);

// The sources' formats are exactly the lines of the list, as often as they are there.
Findings CheckFormatList(const std::vector<LogFormat>& formats, const std::string& list);

// In each slice the section for formats holds exactly these, byte for byte, as often as they are
// there. Empty ones count where nothing lies between the formats but their ends; where they are
// aligned, the gaps look the same.
Findings CheckLogSection(const MachOFile& file, const std::vector<LogFormat>& formats);

}  // namespace kelvrin::macos
