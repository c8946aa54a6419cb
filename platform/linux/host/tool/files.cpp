#include "platform/linux/host/tool/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace tokenhost {
namespace {

using host::Bytes;
using host::Error;
using host::HostError;
using host::Result;

Error SystemError(const std::string& what, int error) {
  return HostError(what + ": " + std::generic_category().message(error));
}

// Returns errno, or 0.
int WriteAll(int descriptor, const Bytes& bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    written += static_cast<size_t>(count);
  }
  return 0;
}

// Returns errno, or 0.
int ReadAll(int descriptor, Bytes* bytes) {
  unsigned char buffer[65536];
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return 0;
    bytes->insert(bytes->end(), buffer, buffer + count);
  }
}

// Devices and pipes are written to as they are.
bool IsSpecial(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

// Where a symbolic link leads, so that the link stays.
std::string Resolved(const std::string& path) {
  std::error_code failure;
  const std::filesystem::path target = std::filesystem::canonical(path, failure);
  return failure ? path : target.string();
}

mode_t ModeFor(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0) return status.st_mode & 0777U;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666U & ~mask;
}

// A file beside the one that is to be, which it will become; gone again unless it does.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& path)
      : target_(Resolved(path)), name_(target_ + ".XXXXXX") {
    if (std::filesystem::is_directory(target_)) {
      error_ = EISDIR;
      return;
    }
    descriptor_ = ::mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) error_ = errno;
  }
  ~TemporaryFile() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    if (!renamed_) ::unlink(name_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Each returns errno, or 0.
  int error() const { return error_; }
  int Commit(const Bytes& bytes) {
    if (descriptor_ < 0) return error_;
    if (const int error = WriteAll(descriptor_, bytes)) return error;
    if (::fchmod(descriptor_, ModeFor(target_)) != 0 || ::fsync(descriptor_) != 0 ||
        std::rename(name_.c_str(), target_.c_str()) != 0) {
      return errno;
    }
    renamed_ = true;
    return 0;
  }

 private:
  std::string target_;
  std::string name_;
  int descriptor_ = -1;
  int error_ = 0;
  bool renamed_ = false;
};

Error CannotWrite(const std::string& path, int error) {
  return SystemError("the file " + path + " cannot be written", error);
}

}  // namespace

Result<Bytes> ReadInput(const std::string& path) {
  const std::string name = path.empty() ? "standard input" : "the file " + path;
  const int descriptor = path.empty() ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return SystemError(name + " cannot be read", errno);
  Bytes bytes;
  const int error = ReadAll(descriptor, &bytes);
  if (!path.empty()) ::close(descriptor);
  if (error != 0) return SystemError(name + " cannot be read", error);
  return bytes;
}

StandardOutput::StandardOutput() {
  std::fflush(stdout);
  descriptor_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

StandardOutput::~StandardOutput() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<Error> StandardOutput::Write(const Bytes& bytes) const {
  const int error = descriptor_ < 0 ? EBADF : WriteAll(descriptor_, bytes);
  if (error == 0) return std::nullopt;
  return SystemError("standard output cannot be written", error);
}

std::optional<Error> CheckWritable(const std::string& path) {
  if (IsSpecial(path)) return std::nullopt;
  const TemporaryFile file(path);
  if (file.error() == 0) return std::nullopt;
  return CannotWrite(path, file.error());
}

std::optional<Error> WriteFile(const std::string& path, const Bytes& bytes) {
  int error = 0;
  if (IsSpecial(path)) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    error = descriptor < 0 ? errno : WriteAll(descriptor, bytes);
    if (descriptor >= 0) ::close(descriptor);
  } else {
    TemporaryFile file(path);
    error = file.Commit(bytes);
  }
  if (error == 0) return std::nullopt;
  return CannotWrite(path, error);
}

}  // namespace tokenhost
