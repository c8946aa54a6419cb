#include "adapter/config.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>

#include "adapter/config_parser.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kMaxFileSize = std::size_t{64} * 1024;

struct Closer {
  void operator()(std::FILE* stream) const { static_cast<void>(std::fclose(stream)); }
};

[[noreturn]] void FailToRead(const std::filesystem::path& file, int reason) {
  FailConfig(file, 0,
             "cannot be read (" + std::generic_category().message(reason) +
                 "); make a text file of it with a line 'module = PATH' that names the PKCS#11 " +
                 "module");
}

std::string Contents(const std::filesystem::path& file) {
  // Not inherited by programs that another thread may start meanwhile.
  const std::unique_ptr<std::FILE, Closer> stream(std::fopen(file.c_str(), "rbe"));
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

Config ReadConfig(const std::filesystem::path& file) { return ParseConfig(file, Contents(file)); }

std::filesystem::path ConfigFileOf(const std::filesystem::path& library) {
  std::filesystem::path file = library;
  return file.replace_extension(".conf");
}

}  // namespace kelvrin::adapter
