#include "modulecheck/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>

#include "modulecheck/conclusion.h"

namespace kelvrin::modulecheck {
namespace {

// The file's type bits; 0 when there is no file.
mode_t TypeOf(const std::string& path) {
  struct stat facts = {};
  return stat(path.c_str(), &facts) == 0 ? facts.st_mode & S_IFMT : 0;
}

}  // namespace

bool Exists(const std::string& path) { return TypeOf(path) != 0; }
bool IsPlainFile(const std::string& path) { return TypeOf(path) == S_IFREG; }

std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real == nullptr ? "" : real.get();
}

std::string AbsolutePath(const std::string& path) {
  const std::size_t name = path.rfind('/') + 1;
  const std::string folder = RealPath(name == 0 ? "." : path.substr(0, name));
  if (folder.empty()) return path;
  return (folder == "/" ? "" : folder) + "/" + path.substr(name);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

long Fill(int descriptor, std::span<char> room) {
  std::size_t size = 0;
  while (size < room.size()) {
    const ssize_t count = read(descriptor, room.data() + size, room.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  return static_cast<long>(size);
}

TemporaryFolder::TemporaryFolder() {
  const char* const parent = std::getenv("TMPDIR");
  path_ = std::string(parent == nullptr ? "/tmp" : parent) + "/modulecheck.XXXXXX";
  if (mkdtemp(path_.data()) != nullptr) return;
  throw Failure("no temporary folder can be made: " + std::generic_category().message(errno),
                Conclusion::kNotJudged);
}

TemporaryFolder::~TemporaryFolder() {
  for (const std::string& file : files_) unlink(file.c_str());
  rmdir(path_.c_str());
}

std::string TemporaryFolder::File(const std::string& name) {
  return files_.emplace_back(path_ + "/" + name);
}

}  // namespace kelvrin::modulecheck
