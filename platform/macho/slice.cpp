#include "platform/macho/slice.h"

#include <fcntl.h>
#include <llvm/Object/MachOUniversal.h>
#include <unistd.h>

#include <algorithm>

#include "platform/macho/image.h"

namespace macho {

using llvm::object::MachOObjectFile;
using llvm::object::MachOUniversalBinary;

std::string Text(llvm::Error error) {
  std::string text = llvm::toString(std::move(error));
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

const char* Slice::Architecture() {
#ifdef __aarch64__
  return "arm64";
#else
  return "x86_64";
#endif
}

Slice::Slice(const std::string& path) {
  auto binary = llvm::object::createBinary(path);
  if (!binary) throw LoadError(path + ": " + Text(binary.takeError()));
  file_ = std::move(*binary);
  object_ = llvm::dyn_cast<MachOObjectFile>(file_.getBinary());
  if (auto* universal = llvm::dyn_cast<MachOUniversalBinary>(file_.getBinary())) {
    for (const auto& candidate : universal->objects()) {
      if (candidate.getArchFlagName() != Architecture()) continue;
      auto object = candidate.getAsObjectFile();
      if (!object) throw LoadError(path + ": " + Text(object.takeError()));
      of_universal_ = std::move(*object);
      object_ = of_universal_.get();
      offset_ = candidate.getOffset();
    }
  }
  if (object_ == nullptr || object_->getArchTriple().getArchName() != Architecture()) {
    throw LoadError(path + ": no Mach-O slice for " + Architecture());
  }
}

std::vector<Dependency> Slice::Dependencies() const {
  std::vector<Dependency> found;
  for (const auto& command : object_->load_commands()) {
    const uint32_t kind = command.C.cmd;
    if (kind != llvm::MachO::LC_LOAD_DYLIB && kind != llvm::MachO::LC_REEXPORT_DYLIB &&
        kind != llvm::MachO::LC_LOAD_WEAK_DYLIB) {
      continue;
    }
    const auto library = object_->getDylibIDLoadCommand(command);
    llvm::StringRef name;
    if (object_->getLibraryShortNameByIndex(static_cast<unsigned>(found.size()), name)) {
      throw LoadError("a library without a name");
    }
    found.push_back(
        {command.Ptr + library.dylib.name, name.str(), kind == llvm::MachO::LC_REEXPORT_DYLIB});
  }
  return found;
}

std::vector<std::string> Slice::RunPaths() const {
  std::vector<std::string> found;
  for (const auto& command : object_->load_commands()) {
    if (command.C.cmd != llvm::MachO::LC_RPATH) continue;
    found.emplace_back(command.Ptr + object_->getRpathCommand(command).path);
  }
  return found;
}

bool IsMachO(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  uint32_t magic = 0;
  const bool is = read(file, &magic, sizeof(magic)) == sizeof(magic) &&
                  (magic == llvm::MachO::MH_MAGIC_64 || magic == llvm::MachO::FAT_CIGAM);
  close(file);
  return is;
}

}  // namespace macho
