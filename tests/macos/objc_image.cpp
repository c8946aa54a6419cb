#include "tests/macos/objc_image.h"

#include <llvm/ADT/StringExtras.h>

namespace kelvrin::macos {
namespace {

using llvm::object::MachOObjectFile;

// What keeps an address from being read.
std::runtime_error Unreadable(const std::string& what, uint64_t address) {
  return std::runtime_error(what + " at 0x" + llvm::utohexstr(address));
}

template <typename T>
T Take(llvm::Expected<T> result) {
  if (result) return *result;
  throw std::runtime_error(llvm::toString(result.takeError()));
}

// Walks through a table of the loader's, which reports its errors at the end.
template <typename Table, typename Visit>
void ForEach(Table table, const Visit& visit) {
  llvm::Error error = llvm::Error::success();
  for (const auto& entry : table(error)) visit(entry);
  if (error) throw std::runtime_error(llvm::toString(std::move(error)));
}

}  // namespace

ObjcImage::ObjcImage(const Slice& slice) : start_(slice.file->getData().data()) {
  for (const auto& command : slice.file->load_commands()) {
    if (command.C.cmd == llvm::MachO::LC_DYLD_CHAINED_FIXUPS) {
      throw std::runtime_error("expected tables of rebases and bindings, got chained fixups");
    }
  }
  ReadSections(*slice.file);
  ReadTables(*slice.file);
}

void ObjcImage::ReadSections(const MachOObjectFile& file) {
  for (const auto& section : file.sections()) {
    if (section.isVirtual()) continue;
    const llvm::StringRef bytes = Take(section.getContents());
    sections_.push_back({Take(section.getName()).str(), section.getAddress(), bytes});
  }
}

void ObjcImage::ReadTables(MachOObjectFile& file) {
  ForEach([&](llvm::Error& error) { return file.rebaseTable(error); },
          [&](const auto& entry) { rebases_.insert(entry.address()); });
  ForEach([&](llvm::Error& error) { return file.bindTable(error); },
          [&](const auto& entry) { bindings_[entry.address()] = entry.symbolName().str(); });
}

std::optional<Range> ObjcImage::Section(std::string_view name) const {
  for (const Contents& section : sections_) {
    if (section.name == name) return Range{section.address, section.bytes.size()};
  }
  return std::nullopt;
}

const ObjcImage::Contents& ObjcImage::SectionAt(uint64_t address) const {
  for (const Contents& section : sections_) {
    if (address >= section.address && address - section.address < section.bytes.size()) {
      return section;
    }
  }
  throw Unreadable("expected a section's contents, got nothing", address);
}

std::string_view ObjcImage::Bytes(uint64_t address, uint64_t size) const {
  const Contents& section = SectionAt(address);
  const uint64_t offset = address - section.address;
  if (section.bytes.size() - offset < size) {
    throw Unreadable("expected more of section " + section.name + ", got its end", address);
  }
  return section.bytes.substr(offset, size);
}

std::string ObjcImage::Text(uint64_t address) const {
  const Contents& section = SectionAt(address);
  const std::string_view rest = section.bytes.substr(address - section.address);
  const size_t length = rest.find('\0');
  if (length == std::string_view::npos) throw Unreadable("expected a text, got no end", address);
  return std::string(rest.substr(0, length));
}

Pointer ObjcImage::PointerAt(uint64_t address) const {
  if (const auto binding = bindings_.find(address); binding != bindings_.end()) {
    return {0, binding->second};
  }
  const auto value = Number<uint64_t>(address);
  if ((value != 0) != rebases_.contains(address)) {
    throw Unreadable(value == 0 ? "expected a pointer, got null" : "expected a rebase, got none",
                     address);
  }
  return {value, ""};
}

uint64_t ObjcImage::AddressAt(uint64_t address) const {
  const Pointer pointer = PointerAt(address);
  if (!pointer.symbol.empty()) {
    throw Unreadable("expected a place in the file, got " + pointer.symbol, address);
  }
  return pointer.address;
}

uint64_t ObjcImage::Offset(uint64_t address) const {
  return static_cast<uint64_t>(Bytes(address, 1).data() - start_);
}

}  // namespace kelvrin::macos
