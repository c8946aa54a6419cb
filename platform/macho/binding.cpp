#include "platform/macho/binding.h"

#include "platform/macho/export_table.h"
#include "platform/macho/stand_ins.h"

namespace macho {
namespace {

using llvm::object::MachOBindEntry;

const ExportTable& MacosExports() {
  static const ExportTable table(KELVRIN_MACOS_EXPORTS);
  return table;
}

class Binder {
 public:
  Binder(const Slice& slice, const Image& image, const std::vector<const Image*>& libraries)
      : image_(image), libraries_(libraries), dependencies_(slice.Dependencies()) {}

  void Bind(const MachOBindEntry& entry) const {
    void* const target = Target(entry);
    *image_.At<uint64_t>(entry.address()) =
        target == nullptr
            ? 0
            : reinterpret_cast<uint64_t>(target) + static_cast<uint64_t>(entry.addend());
  }

 private:
  void* Target(const MachOBindEntry& entry) const {
    const bool optional = (entry.flags() & llvm::MachO::BIND_SYMBOL_FLAGS_WEAK_IMPORT) != 0;
    const std::string symbol = entry.symbolName().str();
    const auto place = static_cast<size_t>(entry.ordinal()) - 1;  // special ones are 0 or less
    if (place >= dependencies_.size()) {
      throw LoadError(image_.path + ": " + symbol + " is bound to no library of its list");
    }
    const std::string& library = dependencies_[place].name;
    if (const Image* other = libraries_[place]) {
      void* const address = other->Export(symbol);
      if (address == nullptr && !optional) {
        throw LoadError(image_.path + ": " + symbol + " is not exported by " + other->path);
      }
      return address;
    }
    const std::string wrong = MacosExports().WhatIsWrong(library, symbol);
    if (!wrong.empty()) {
      if (optional) return nullptr;
      throw LoadError(image_.path + ": " + wrong);
    }
    void* const address = FindStandIn(library, symbol);
    if (address == nullptr) {
      throw LoadError(image_.path + ": " + symbol + " of " + library + ": nothing stands for it");
    }
    return address;
  }

  const Image& image_;
  const std::vector<const Image*>& libraries_;
  const std::vector<Dependency> dependencies_;
};

}  // namespace

void Rebase(const Slice& slice, const Image& image) {
  llvm::Error error = llvm::Error::success();
  for (const auto& entry : slice.object().rebaseTable(error)) {
    *image.At<uint64_t>(entry.address()) += static_cast<uint64_t>(image.slide);
  }
  if (error) throw LoadError(image.path + ": " + Text(std::move(error)));
}

void Bind(const Slice& slice, const Image& image, const std::vector<const Image*>& libraries) {
  const Binder binder(slice, image, libraries);
  llvm::Error error = llvm::Error::success();
  for (const auto& entry : slice.object().bindTable(error)) binder.Bind(entry);
  if (error) throw LoadError(image.path + ": " + Text(std::move(error)));
  llvm::Error lazy_error = llvm::Error::success();
  for (const auto& entry : slice.object().lazyBindTable(lazy_error)) binder.Bind(entry);
  if (lazy_error) throw LoadError(image.path + ": " + Text(std::move(lazy_error)));
}

}  // namespace macho
