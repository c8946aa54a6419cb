// Text files for tests.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/temporary_folder.h"

namespace host::testing {

using kelvrin::TemporaryFolder;

inline void WriteText(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// Empty when there is no such file.
inline std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace host::testing
