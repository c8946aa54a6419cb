// Our headers of Apple's frameworks, and a copy of them for a test to spoil.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/macos/header_compiler.h"
#include "tests/macos/text_file.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {

inline HeaderFolders Headers() {
  return {KELVRIN_SOURCE "/platform/include",
          KELVRIN_SOURCE "/platform/macos/sdk/System/Library/Frameworks"};
}

class SpoiledHeaders : public testing::Test {
 protected:
  SpoiledHeaders() {
    std::filesystem::copy(Headers().includes, copy_.includes,
                          std::filesystem::copy_options::recursive);
    std::filesystem::copy(Headers().frameworks, copy_.frameworks,
                          std::filesystem::copy_options::recursive);
  }

  // Puts a text in the place of another, which must be there once.
  static void Replace(const std::filesystem::path& header, const std::string& from,
                      const std::string& to) {
    std::string text = ReadFile(header);
    const size_t at = text.find(from);
    if (at == std::string::npos || text.find(from, at + 1) != std::string::npos) {
      throw std::runtime_error("not once in " + header.string() + ": " + from);
    }
    std::ofstream(header, std::ios::binary) << text.replace(at, from.size(), to);
  }

  static void Append(const std::filesystem::path& header, const std::string& text) {
    std::ofstream(header, std::ios::binary | std::ios::app) << text;
  }

  std::filesystem::path TokenKit(const std::string& name) const {
    return copy_.includes / "CryptoTokenKit" / name;
  }

  const TemporaryFolder folder_;
  const HeaderFolders copy_{folder_ / "include", folder_ / "frameworks"};
};

}  // namespace kelvrin::macos
