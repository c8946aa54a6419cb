#include "platform/macho/loader.h"

#include <llvm/BinaryFormat/MachO.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>

#include "platform/macho/binding.h"
#include "platform/macho/mapping.h"
#include "platform/macho/objc/classes.h"
#include "platform/macho/signature.h"
#include "platform/macho/slice.h"
#include "platform/macho/thread_locals.h"
#include "platform/macho/unwind.h"

namespace macho {
namespace {

// Never destroyed, since images are used while the process ends.
std::vector<std::unique_ptr<Image>>& Images() {
  static auto* const all = new std::vector<std::unique_ptr<Image>>;
  return *all;
}

// Initialisers load further images.
std::recursive_mutex& Lock() {
  static auto* const lock = new std::recursive_mutex;
  return *lock;
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) throw LoadError(path + ": " + strerror(errno));
  return status;
}

const Image* Find(const struct stat& status) {
  for (const auto& image : Images()) {
    if (image->device == status.st_dev && image->inode == status.st_ino) return image.get();
  }
  return nullptr;
}

std::string Folder(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

// A path of the file with the part in @ filled in; as it stands when it has none.
std::string Expand(const std::string& path, const Image& image) {
  for (const char* part : {"@loader_path", "@executable_path"}) {
    if (path.starts_with(part)) return Folder(image.path) + path.substr(strlen(part));
  }
  return path;
}

// Where a library that an image names lies; empty for one of the system.
std::string PathOf(const Dependency& library, const Slice& slice, const Image& image) {
  if (!library.path.starts_with("@")) return "";
  if (!library.path.starts_with("@rpath/")) return Expand(library.path, image);
  for (const std::string& folder : slice.RunPaths()) {
    const std::string path = Expand(folder, image) + library.path.substr(strlen("@rpath"));
    if (access(path.c_str(), R_OK) == 0) return path;
  }
  throw LoadError(image.path + ": " + library.path + " is in none of its folders");
}

// Loads what the image names beside itself: null in the place of a library of the system.
std::vector<const Image*> LoadLibraries(const Slice& slice, Image* image) {
  std::vector<const Image*> libraries;
  for (const Dependency& library : slice.Dependencies()) {
    const std::string path = PathOf(library, slice, *image);
    const Image* const loaded = path.empty() ? nullptr : Load(path);
    if (loaded != nullptr && library.reexported) image->reexports.push_back(loaded);
    libraries.push_back(loaded);
  }
  return libraries;
}

// Notes where a program begins. Chained fixups are of newer systems than our files are for.
void ReadCommands(const Slice& slice, Image* image) {
  for (const auto& command : slice.object().load_commands()) {
    if (command.C.cmd == llvm::MachO::LC_MAIN) {
      const auto entry = slice.object().getEntryPointCommand(command);
      image->main = reinterpret_cast<Image::Main>(image->start + entry.entryoff);
    } else if (command.C.cmd == llvm::MachO::LC_DYLD_CHAINED_FIXUPS) {
      throw LoadError(image->path + ": chained fixups are not supported");
    }
  }
}

void RunInitialisers(const Image& image) {
  char* none = nullptr;
  for (const Section& section : image.sections) {
    if (section.type == llvm::MachO::S_MOD_INIT_FUNC_POINTERS) {
      auto* const first = reinterpret_cast<Image::Initialiser*>(section.start);
      for (size_t i = 0; i < section.size / sizeof(*first); ++i) {
        first[i](0, &none, environ, &none);
      }
    } else if (section.type == llvm::MachO::S_INIT_FUNC_OFFSETS) {
      auto* const first = reinterpret_cast<const uint32_t*>(section.start);
      for (size_t i = 0; i < section.size / sizeof(*first); ++i) {
        reinterpret_cast<Image::Initialiser>(image.start + first[i])(0, &none, environ, &none);
      }
    }
  }
}

void Prepare(const Slice& slice, Image* image) {
  VerifySignature(slice, image->path);
  MapSegments(slice, image);
  ReadCommands(slice, image);
  const auto libraries = LoadLibraries(slice, image);
  Rebase(slice, *image);
  Bind(slice, *image, libraries);
  PrepareThreadLocals(*image);
  RegisterClasses(*image);
  ProtectSegments(slice, *image);
  RegisterUnwinding(image);
}

}  // namespace

const Image* Load(const std::string& path) {
  const std::lock_guard lock(Lock());
  const struct stat status = StatusOf(path);
  if (const Image* known = Find(status)) return known;
  const Slice slice(path);
  auto owned = std::make_unique<Image>();
  Image* const image = owned.get();
  image->path = path;
  image->device = status.st_dev;
  image->inode = status.st_ino;
  Prepare(slice, image);
  Images().push_back(std::move(owned));
  RunInitialisers(*image);
  return image;
}

const Image* Loaded(const std::string& path) {
  const std::lock_guard lock(Lock());
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? Find(status) : nullptr;
}

const Image* ImageOfHandle(const void* handle) {
  const std::lock_guard lock(Lock());
  for (const auto& image : Images()) {
    if (image.get() == handle) return image.get();
  }
  return nullptr;
}

const Image* ImageOfAddress(const void* address) {
  const std::lock_guard lock(Lock());
  for (const auto& image : Images()) {
    if (image->Contains(address)) return image.get();
  }
  return nullptr;
}

}  // namespace macho
