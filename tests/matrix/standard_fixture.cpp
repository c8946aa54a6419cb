#include "tests/matrix/standard_fixture.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace matrix {

std::string SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(std::regex_replace(line, std::regex("^((Data o|O)bject) [0-9]+"), "$1"));
  }
  std::sort(lines.begin(), lines.end());
  std::string sorted;
  for (const std::string& line : lines) sorted += line + '\n';
  return sorted;
}

std::string WithoutKeyMaterial(const std::string& text) {
  return std::regex_replace(text, std::regex("[0-9a-f]{64,}"), "{key}");
}

}  // namespace matrix
