#include "tests/macos/testing/spoiled_copy.h"

#include <llvm/Object/MachOUniversal.h>
#include <llvm/Support/Endian.h>

#include <iterator>
#include <stdexcept>

namespace kelvrin::macos {
namespace {

std::string Contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

SpoiledCopy::SpoiledCopy(const std::filesystem::path& original)
    : original_(original), bytes_(Contents(original)) {}

const Slice& SpoiledCopy::SliceOf(const std::string& architecture) const {
  for (const Slice& slice : original_.slices()) {
    if (slice.architecture == architecture) return slice;
  }
  throw std::runtime_error("no slice of " + architecture);
}

size_t SpoiledCopy::Begin(const std::string& architecture) const {
  const std::string all = Contents(original_.path());
  const auto file = llvm::cantFail(
      llvm::object::MachOUniversalBinary::create(llvm::MemoryBufferRef(all, "original")));
  for (const auto& object : file->objects()) {
    if (object.getArchFlagName() == architecture) return object.getOffset();
  }
  throw std::runtime_error("no slice of " + architecture);
}

size_t SpoiledCopy::Command(const std::string& architecture, uint32_t type, int number) const {
  const Slice& slice = SliceOf(architecture);
  for (const auto& command : slice.file->load_commands()) {
    if (command.C.cmd != type || number-- > 0) continue;
    return Begin(architecture) + static_cast<size_t>(command.Ptr - slice.file->getData().data());
  }
  throw std::runtime_error("no such load command");
}

size_t SpoiledCopy::Section(const std::string& architecture, const std::string& name) const {
  const Slice& slice = SliceOf(architecture);
  for (const auto& section : slice.file->sections()) {
    if (llvm::cantFail(section.getName()) != name) continue;
    return Begin(architecture) + slice.file->getSection64(section.getRawDataRefImpl()).offset;
  }
  throw std::runtime_error("no section " + name);
}

uint32_t SpoiledCopy::Word(size_t offset) const {
  return llvm::support::endian::read32le(bytes_.data() + offset);
}

void SpoiledCopy::PutWord(size_t offset, uint32_t value) {
  llvm::support::endian::write32le(bytes_.data() + offset, value);
}

void SpoiledCopy::Replace(const std::string& architecture, const std::string& from,
                          const std::string& to) {
  if (from.size() != to.size()) throw std::runtime_error("of another size: " + to);
  const size_t begin = Begin(architecture);
  const size_t end = begin + SliceOf(architecture).file->getData().size();
  bool found = false;
  for (size_t at = bytes_.find(from, begin); at < end; at = bytes_.find(from, at + 1)) {
    bytes_.replace(at, from.size(), to);
    found = true;
  }
  if (!found) throw std::runtime_error("not there: " + from);
}

MachOFile SpoiledCopy::Open() const {
  return MachOFile(folder_.Write(original_.path().filename(), bytes_));
}

}  // namespace kelvrin::macos
