#include "modulecheck/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "modulecheck/descriptor.h"

namespace kelvrin::modulecheck {
namespace {

struct Deleter {
  void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Deleter>;

// The file's type bits; 0 when there is no file.
mode_t TypeOf(const std::string& path) {
  struct stat facts = {};
  return stat(path.c_str(), &facts) == 0 ? facts.st_mode & S_IFMT : 0;
}

std::string Reason() { return std::generic_category().message(errno); }

bool WriteAll(int descriptor, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

bool Exists(const std::string& path) { return TypeOf(path) != 0; }
bool IsFolder(const std::string& path) { return TypeOf(path) == S_IFDIR; }
bool IsPlainFile(const std::string& path) { return TypeOf(path) == S_IFREG; }
bool IsPlainFile(int descriptor) {
  struct stat facts = {};
  return fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

std::string AbsolutePath(const std::string& path) {
  if (path.starts_with('/')) return path;
  const std::string folder = RealPath(".");
  return folder.empty() ? path : folder + "/" + path;
}

std::string RealPath(const std::string& path) {
  const Text real(realpath(path.c_str(), nullptr));
  return real == nullptr ? "" : real.get();
}

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string CopyFile(const std::string& from, const std::string& to) {
  const Descriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (source.get() < 0) return Reason();
  const Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRWXU));
  if (target.get() < 0) return Reason();
  std::array<char, 65536> part = {};
  for (;;) {
    const ssize_t size = read(source.get(), part.data(), part.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return Reason();
    if (size == 0) return "";
    if (!WriteAll(target.get(), part.data(), static_cast<std::size_t>(size))) return Reason();
  }
}

}  // namespace kelvrin::modulecheck
