// A file's bytes.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace kelvrin::macos {

// Throws std::runtime_error with the path when the file cannot be read.
inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file || std::filesystem::is_directory(path)) {
    throw std::runtime_error(path.string() + " cannot be read");
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kelvrin::macos
