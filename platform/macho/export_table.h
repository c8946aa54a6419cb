// What macOS's own libraries export, from the table that the inspection of the bundle uses too.
#pragma once
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace macho {

class ExportTable {
 public:
  // Reads the table. Throws LoadError when the file cannot be read or lacks a column.
  explicit ExportTable(const std::string& path);

  // What is wrong with binding a symbol to a library ("libSystem"), naming both; empty when macOS
  // binds it.
  std::string WhatIsWrong(std::string_view library, std::string_view symbol) const;

 private:
  struct Row {
    std::string exported;  // "yes", or another word for why not
    std::string home;
  };
  std::map<std::pair<std::string, std::string>, Row> rows_;
};

}  // namespace macho
