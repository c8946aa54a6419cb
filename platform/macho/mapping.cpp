#include "platform/macho/mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace macho {
namespace {

using llvm::MachO::section_64;
using llvm::MachO::segment_command_64;

// The segments that are mapped; __PAGEZERO only keeps addresses free.
std::vector<segment_command_64> Segments(const Slice& slice) {
  std::vector<segment_command_64> found;
  for (const auto& command : slice.object().load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_SEGMENT_64) continue;
    const auto segment = slice.object().getSegment64LoadCommand(command);
    if (segment.initprot != 0) found.push_back(segment);
  }
  return found;
}

// Names of 16 bytes have no zero behind them.
std::string Name(const char (&field)[16]) { return {field, strnlen(field, sizeof(field))}; }

uint64_t WholePages(uint64_t size) {
  const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  return (size + page - 1) / page * page;
}

class File {
 public:
  explicit File(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_ < 0) throw LoadError(path + ": " + strerror(errno));
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(file_); }
  operator int() const { return file_; }  // NOLINT(google-explicit-constructor): a descriptor

 private:
  int file_;
};

void MapSegment(int file, const Slice& slice, const segment_command_64& segment, Image* image) {
  auto* const at = image->At<uint8_t>(segment.vmaddr);
  const uint64_t in_file = WholePages(segment.filesize);
  if (in_file > 0 && mmap(at, in_file, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file,
                          static_cast<off_t>(slice.offset() + segment.fileoff)) == MAP_FAILED) {
    throw LoadError(image->path + ": mmap of " + Name(segment.segname) + ": " + strerror(errno));
  }
  std::fill(at + segment.filesize, at + in_file, uint8_t{0});
  if (segment.vmsize > in_file) {
    mprotect(at + in_file, segment.vmsize - in_file, PROT_READ | PROT_WRITE);
  }
}

void NoteSections(const Slice& slice, Image* image) {
  for (const auto& reference : slice.object().sections()) {
    const section_64 section = slice.object().getSection64(reference.getRawDataRefImpl());
    image->sections.push_back({Name(section.segname), Name(section.sectname),
                               image->At<uint8_t>(section.addr), section.size,
                               section.flags & llvm::MachO::SECTION_TYPE});
  }
}

void NoteExports(const Slice& slice, Image* image) {
  llvm::Error error = llvm::Error::success();
  for (const auto& symbol : slice.object().exports(error)) {
    image->exports[symbol.name().str()] = image->start + symbol.address();
  }
  if (error) throw LoadError(image->path + ": " + Text(std::move(error)));
}

}  // namespace

void MapSegments(const Slice& slice, Image* image) {
  const File file(image->path);
  const auto segments = Segments(slice);
  uint64_t low = std::numeric_limits<uint64_t>::max();
  uint64_t high = 0;
  for (const auto& segment : segments) {
    low = std::min(low, segment.vmaddr);
    high = std::max(high, segment.vmaddr + segment.vmsize);
  }
  if (segments.empty()) throw LoadError(image->path + ": no segments");
  void* const room = mmap(nullptr, high - low, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) throw LoadError(image->path + ": mmap: " + strerror(errno));
  image->start = static_cast<uint8_t*>(room);
  image->size = high - low;
  image->slide = reinterpret_cast<intptr_t>(room) - static_cast<intptr_t>(low);
  for (const auto& segment : segments) MapSegment(file, slice, segment, image);
  NoteSections(slice, image);
  NoteExports(slice, image);
}

void ProtectSegments(const Slice& slice, const Image& image) {
  for (const auto& segment : Segments(slice)) {
    mprotect(image.At<void>(segment.vmaddr), segment.vmsize, static_cast<int>(segment.initprot));
  }
}

}  // namespace macho
