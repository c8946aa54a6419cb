// A copy of a binary, for a test to spoil.
#pragma once

#include <cstdint>
#include <string>

#include "tests/macos/macho_file.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {

class SpoiledCopy {
 public:
  // Reads the file; nothing is spoiled yet. Throws std::runtime_error when it cannot be read.
  explicit SpoiledCopy(const std::filesystem::path& original);

  // The bytes of the whole file.
  std::string& bytes() { return bytes_; }
  // Where a slice begins in the file.
  size_t Begin(const std::string& architecture) const;
  // Where the first load command of a type begins in the file, or one after it.
  size_t Command(const std::string& architecture, uint32_t type, int number = 0) const;
  // Where a section's contents begin in the file.
  size_t Section(const std::string& architecture, const std::string& name) const;

  uint32_t Word(size_t offset) const;
  void PutWord(size_t offset, uint32_t value);
  // Puts a text in the place of every occurrence of another of the same size within a slice. Throws
  // std::runtime_error when there is none.
  void Replace(const std::string& architecture, const std::string& from, const std::string& to);

  // What is left, under the original's file name.
  MachOFile Open() const;

 private:
  const Slice& SliceOf(const std::string& architecture) const;

  MachOFile original_;
  std::string bytes_;
  TemporaryFolder folder_;
};

}  // namespace kelvrin::macos
