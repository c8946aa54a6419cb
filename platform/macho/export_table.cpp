#include "platform/macho/export_table.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/macho/image.h"
#include "platform/macho/slice.h"

namespace macho {
namespace {

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream rest(line);
  for (std::string field; std::getline(rest, field, '\t');) fields.push_back(field);
  return fields;
}

// The column whose name ends in the architecture's.
size_t ColumnOf(const std::vector<std::string>& titles, const std::string& end) {
  const auto found = std::find_if(titles.begin(), titles.end(),
                                  [&](const std::string& title) { return title.ends_with(end); });
  if (found == titles.end()) throw LoadError("the table of exports has no column " + end);
  return static_cast<size_t>(found - titles.begin());
}

}  // namespace

ExportTable::ExportTable(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> titles;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    auto fields = Fields(line);
    if (titles.empty()) {
      titles = fields;
      continue;
    }
    fields.resize(titles.size());
    rows_[{fields[ColumnOf(titles, "library")], fields[ColumnOf(titles, "symbol")]}] = {
        fields[ColumnOf(titles, Slice::Architecture())], fields[ColumnOf(titles, "home")]};
  }
  if (rows_.empty()) throw LoadError(path + ": no table of exports");
}

std::string ExportTable::WhatIsWrong(std::string_view library, std::string_view symbol) const {
  const std::string name(symbol);
  const std::string pair = name + " of " + std::string(library);
  const auto found = rows_.find({std::string(library), name});
  if (found == rows_.end()) return pair + ": not in the table of what macOS exports";
  const Row& row = found->second;
  if (row.exported == "yes") return "";
  return pair + ": macOS does not export it there; its home is " +
         (row.home.empty() ? "unknown" : row.home);
}

}  // namespace macho
