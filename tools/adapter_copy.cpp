#include "tools/adapter_copy.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include "tools/failure.h"

namespace kelvrin::modulecheck {
namespace {

namespace fs = std::filesystem;

constexpr char kLibrary[] = "adapter.module";
constexpr char kConfiguration[] = "adapter.conf";

bool HasKey(const std::string& lines, const std::string& key) {
  std::istringstream text(lines);
  for (std::string line; std::getline(text, line);) {
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
    const std::size_t next = line.find_first_not_of(" \t", start + key.size());
    if (next != std::string::npos && line[next] == '=') return true;
  }
  return false;
}

fs::path MakeFolder() {
  std::error_code failure;
  const fs::path parent = fs::temp_directory_path(failure);
  std::string name = ((failure ? fs::path("/tmp") : parent) / "modulecheck.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure("no folder for the adapter can be made: " +
                  std::generic_category().message(errno));
  }
  return name;
}

}  // namespace

AdapterCopy::AdapterCopy(const fs::path& adapter, const fs::path& module,
                         const std::string& reader_name, const std::string& lines)
    : folder_(MakeFolder()) {
  std::error_code failure;
  fs::copy_file(adapter, library(), failure);
  std::ofstream file(configuration(), std::ios::binary);
  file << lines;
  if (!lines.empty() && lines.back() != '\n') file << '\n';
  file << "module = " << module.string() << '\n';
  if (!reader_name.empty() && !HasKey(lines, "reader-name")) {
    file << "reader-name = " << reader_name << '\n';
  }
  file.close();
  if (!failure && file) return;
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
  throw Failure("the adapter " + adapter.string() + " cannot be copied" +
                (failure ? ": " + failure.message() : ""));
}

AdapterCopy::~AdapterCopy() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

fs::path AdapterCopy::library() const { return folder_ / kLibrary; }
fs::path AdapterCopy::configuration() const { return folder_ / kConfiguration; }

std::string AdapterCopy::Renamed(std::string message, const std::string& file) const {
  const std::string own = configuration().string();
  for (std::size_t at = 0; (at = message.find(own, at)) != std::string::npos;) {
    message.replace(at, own.size(), file);
    at += file.size();
  }
  return message;
}

}  // namespace kelvrin::modulecheck
