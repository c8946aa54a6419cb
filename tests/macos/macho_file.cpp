#include "tests/macos/macho_file.h"

#include <llvm/BinaryFormat/Magic.h>
#include <llvm/Object/MachOUniversal.h>

#include <stdexcept>

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;
using llvm::object::MachOUniversalBinary;

// What LLVM gives, or an exception with the file's name.
template <typename T>
T Take(const std::filesystem::path& path, llvm::Expected<T> result) {
  if (result) return std::move(*result);
  throw std::runtime_error(path.string() + ": " + llvm::toString(result.takeError()));
}

}  // namespace

MachOFile::MachOFile(const std::filesystem::path& path) : path_(path) {
  auto buffer = llvm::MemoryBuffer::getFile(path.string(), /*IsText=*/false,
                                            /*RequiresNullTerminator=*/false);
  if (!buffer) throw std::runtime_error(path.string() + ": " + buffer.getError().message());
  buffer_ = std::move(*buffer);
  if (llvm::identify_magic(buffer_->getBuffer()) != llvm::file_magic::macho_universal_binary) {
    auto file = Take(path, llvm::object::ObjectFile::createMachOObjectFile(*buffer_));
    slices_.push_back({file->getArchTriple().getArchName().str(), std::move(file)});
    return;
  }
  const auto universal = Take(path, MachOUniversalBinary::create(*buffer_));
  for (const auto& object : universal->objects()) {
    slices_.push_back({object.getArchFlagName(), Take(path, object.getAsObjectFile())});
  }
}

}  // namespace kelvrin::macos
