#include "adapter/config/file_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <vector>

namespace kelvrin::adapter {
namespace {

bool IsAbsolute(std::string_view path) { return path.starts_with('/'); }

[[noreturn]] void Fail(int reason, const std::string& what) {
  throw std::system_error(reason, std::generic_category(), what);
}

std::string WorkingFolder() {
  std::string folder(256, '\0');
  while (getcwd(folder.data(), folder.size()) == nullptr) {
    if (errno != ERANGE) Fail(errno, "the working folder");
    folder.resize(2 * folder.size());
  }
  folder.resize(folder.find('\0'));
  return folder;
}

// An absolute path without ".", ".." and double slashes; one that leads to a folder by ending in
// any of them ends in a slash.
std::string Normal(std::string_view path) {
  std::vector<std::string_view> names;
  bool is_folder = true;
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    const std::string_view name = path.substr(0, slash);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    is_folder = name.empty() || name == "." || name == ".." || slash != std::string_view::npos;
    if (name == "..") {
      if (!names.empty()) names.pop_back();
    } else if (!name.empty() && name != ".") {
      names.push_back(name);
    }
  }
  std::string normal;
  for (const std::string_view name : names) normal.append("/").append(name);
  if (is_folder) normal += '/';
  return normal;
}

}  // namespace

std::string AbsolutePath(const std::string& path) {
  if (path.empty()) Fail(ENOENT, "a path");
  if (IsAbsolute(path)) return path;
  std::string absolute = WorkingFolder();
  if (absolute.back() != '/') absolute += '/';
  return absolute + path;
}

std::string PathBeside(const std::string& file, std::string_view path) {
  if (IsAbsolute(path)) return Normal(path);
  return Normal(file.substr(0, file.rfind('/') + 1).append(path));
}

std::string WithEnding(const std::string& path, std::string_view ending) {
  const std::size_t name = path.rfind('/') + 1;  // 0 without a slash
  const std::size_t dot = path.rfind('.');
  const bool has_ending =
      dot != std::string::npos && dot > name && std::string_view(path).substr(name) != "..";
  return path.substr(0, has_ending ? dot : std::string::npos).append(ending);
}

bool IsRegularFile(const std::string& path) {
  struct stat facts = {};
  return stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

}  // namespace kelvrin::adapter
