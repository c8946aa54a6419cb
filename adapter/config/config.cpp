#include "adapter/config/config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>

#include "adapter/config/config_parser.h"
#include "adapter/config/file_path.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kMaxFileSize = std::size_t{64} * 1024;

struct Closer {
  void operator()(std::FILE* stream) const { static_cast<void>(std::fclose(stream)); }
};
using Stream = std::unique_ptr<std::FILE, Closer>;

// Null with errno set. A pipe or a device is refused, since reading from it might wait for ever.
Stream OpenToRead(const std::string& file) {
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return nullptr;
  struct stat facts = {};
  if (fstat(descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    close(descriptor);
    errno = EINVAL;
    return nullptr;
  }
  Stream stream(fdopen(descriptor, "rb"));
  if (!stream) close(descriptor);
  return stream;
}

[[noreturn]] void FailToRead(const std::string& file, int reason) {
  FailConfig(file, 0,
             "cannot be read (" + std::generic_category().message(reason) +
                 "); make a text file of it with a line 'module = PATH' that names the PKCS#11 " +
                 "module");
}

std::string Contents(const std::string& file) {
  const Stream stream = OpenToRead(file);
  if (!stream) FailToRead(file, errno);
  std::string contents(kMaxFileSize + 1, '\0');
  contents.resize(std::fread(contents.data(), 1, contents.size(), stream.get()));
  if (std::ferror(stream.get()) != 0) FailToRead(file, errno);
  if (contents.size() > kMaxFileSize) {
    FailConfig(file, 0, "has more than 64 KiB; keep only the lines that the adapter knows");
  }
  return contents;
}

}  // namespace

Config ReadConfig(const std::string& file) { return ParseConfig(file, Contents(file)); }

std::string ConfigFileOf(const std::string& library) { return WithEnding(library, ".conf"); }

}  // namespace kelvrin::adapter
