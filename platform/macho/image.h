// A Mach-O image that is loaded into this process, and where to find it again.
#pragma once
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace macho {

// Why an image cannot be loaded, in one line.
struct LoadError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A section, where it lies in memory.
struct Section {
  std::string segment;
  std::string name;
  uint8_t* start;
  uint64_t size;  // bytes
  uint32_t type;  // llvm::MachO::S_…
};

// One loaded image. It is never unloaded, as macOS unloads none with classes or thread-local
// variables.
struct Image {
  using Initialiser = void (*)(int, char**, char**, char**);
  using Main = int (*)(int, char**, char**, char**);

  std::string path;
  dev_t device = 0;
  ino_t inode = 0;
  uint8_t* start = nullptr;  // of the segments, the first of which begins with the header
  uint64_t size = 0;         // bytes from there to the end of the last segment
  intptr_t slide = 0;        // what is added to an address of the file
  Main main = nullptr;       // of a program
  std::vector<Section> sections;
  std::map<std::string, void*, std::less<>> exports;  // with the leading underscore
  std::vector<const Image*> reexports;                // libraries whose exports count as its own
  std::vector<std::shared_ptr<const void>> kept;      // what others were told of it

  bool Contains(const void* address) const { return address >= start && address < start + size; }

  template <typename T>
  T* At(uint64_t file_address) const {
    const intptr_t offset =
        static_cast<intptr_t>(file_address) + slide - reinterpret_cast<intptr_t>(start);
    return reinterpret_cast<T*>(start + offset);
  }

  // The section of a name in __TEXT, __DATA or __DATA_CONST; null when there is none.
  const Section* Find(std::string_view name) const;

  // What the image exports by a name with its underscore; null when it does not.
  void* Export(std::string_view name) const;
};

}  // namespace macho
