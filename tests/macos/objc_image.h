// What lies at the addresses of a Mach-O slice: numbers, texts, and pointers as the system's loader
// sets them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// Where a pointer leads: to an address of the slice, to a symbol of a library, or nowhere.
struct Pointer {
  uint64_t address = 0;
  std::string symbol;

  explicit operator bool() const { return address != 0 || !symbol.empty(); }
};

// A section's place in memory, in bytes.
struct Range {
  uint64_t address = 0;
  uint64_t size = 0;
};

// Everything that cannot be read throws std::runtime_error.
class ObjcImage {
 public:
  // The slice must outlive the image. Chained fixups, which the oldest supported systems do not
  // know, are refused.
  explicit ObjcImage(const Slice& slice);

  // The section of that name, whatever its segment.
  std::optional<Range> Section(std::string_view name) const;

  // A number of the processor's byte order, which is this machine's.
  template <typename T>
  T Number(uint64_t address) const {
    T value;
    Bytes(address, sizeof(T)).copy(reinterpret_cast<char*>(&value), sizeof(T));
    return value;
  }

  // The text up to its NUL.
  std::string Text(uint64_t address) const;

  // The pointer at an address, as the tables of rebases and bindings have it.
  Pointer PointerAt(uint64_t address) const;

  // The address that a pointer must lead to within the slice, or 0.
  uint64_t AddressAt(uint64_t address) const;

  // The text that a pointer leads to.
  std::string TextAt(uint64_t address) const { return Text(AddressAt(address)); }

  // Where in the slice's bytes an address lies.
  uint64_t Offset(uint64_t address) const;

 private:
  struct Contents {
    std::string name;
    uint64_t address;
    std::string_view bytes;
  };

  std::string_view Bytes(uint64_t address, uint64_t size) const;
  const Contents& SectionAt(uint64_t address) const;
  void ReadSections(const llvm::object::MachOObjectFile& file);
  void ReadTables(llvm::object::MachOObjectFile& file);

  const char* start_;
  std::vector<Contents> sections_;
  std::set<uint64_t> rebases_;
  std::map<uint64_t, std::string> bindings_;
};

}  // namespace kelvrin::macos
