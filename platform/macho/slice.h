// The part of a Mach-O file that is for this machine's processor, as LLVM reads it.
#pragma once
#include <llvm/Object/MachO.h>

#include <string>
#include <vector>

namespace macho {

// A library that an image names, in the order in which binds count them from 1.
struct Dependency {
  std::string path;  // as it stands in the file: an absolute path, @rpath/…, @loader_path/…
  std::string name;  // "libSystem", "Foundation"
  bool reexported;
};

class Slice {
 public:
  // Opens and checks a file. Throws LoadError when it cannot be read, is no Mach-O file, ends too
  // early, or has no slice for this processor.
  explicit Slice(const std::string& path);

  llvm::object::MachOObjectFile& object() const { return *object_; }
  uint64_t offset() const { return offset_; }  // of the slice in the file, bytes
  std::vector<Dependency> Dependencies() const;
  std::vector<std::string> RunPaths() const;

  // "x86_64" or "arm64".
  static const char* Architecture();

 private:
  llvm::object::OwningBinary<llvm::object::Binary> file_;
  std::unique_ptr<llvm::object::MachOObjectFile> of_universal_;
  llvm::object::MachOObjectFile* object_ = nullptr;
  uint64_t offset_ = 0;
};

// Whether a file begins as Mach-O files do.
bool IsMachO(const char* path);

// What LLVM says, in one line.
std::string Text(llvm::Error error);

}  // namespace macho
