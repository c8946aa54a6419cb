// A Mach-O file of the bundle, slice by slice.
#pragma once

#include <llvm/Object/MachO.h>
#include <llvm/Support/MemoryBuffer.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kelvrin::macos {

struct Slice {
  std::string architecture;  // "x86_64" or "arm64"
  std::unique_ptr<llvm::object::MachOObjectFile> file;
};

class MachOFile {
 public:
  // Reads a universal or a thin file. Throws std::runtime_error when it is neither.
  explicit MachOFile(const std::filesystem::path& path);

  // In the order of the file.
  const std::vector<Slice>& slices() const { return slices_; }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  std::unique_ptr<llvm::MemoryBuffer> buffer_;  // what the slices point into
  std::vector<Slice> slices_;
};

}  // namespace kelvrin::macos
