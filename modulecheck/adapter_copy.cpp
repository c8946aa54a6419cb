#include "modulecheck/adapter_copy.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include "modulecheck/conclusion.h"
#include "modulecheck/files.h"

namespace kelvrin::modulecheck {
namespace {

constexpr char kLibrary[] = "adapter.module";
constexpr char kConfiguration[] = "adapter.conf";

std::string MakeFolder() {
  const char* const parent = std::getenv("TMPDIR");
  std::string name =
      std::string(parent != nullptr && IsFolder(parent) ? parent : "/tmp") + "/modulecheck.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(
        "no folder for the adapter can be made: " + std::generic_category().message(errno),
        Conclusion::kNotJudged);
  }
  return name;
}

}  // namespace

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

AdapterCopy::AdapterCopy(const std::string& adapter, const std::string& module,
                         const std::string& reader_name, const std::string& lines)
    : folder_(MakeFolder()) {
  const std::string failure = CopyFile(adapter, library());
  std::ofstream file(configuration(), std::ios::binary);
  file << lines;
  if (!lines.empty() && lines.back() != '\n') file << '\n';
  file << "module = " << module << '\n';
  if (!reader_name.empty() && !HasKey(lines, "reader-name")) {
    file << "reader-name = " << reader_name << '\n';
  }
  file.close();
  if (failure.empty() && file) return;
  Remove();
  throw Failure(
      "the adapter " + adapter + " cannot be copied" + (failure.empty() ? "" : ": " + failure),
      Conclusion::kNotJudged);
}

AdapterCopy::~AdapterCopy() { Remove(); }

void AdapterCopy::Remove() const {
  unlink(library().c_str());
  unlink(configuration().c_str());
  rmdir(folder_.c_str());
}

std::string AdapterCopy::library() const { return folder_ + "/" + kLibrary; }
std::string AdapterCopy::configuration() const { return folder_ + "/" + kConfiguration; }

std::string AdapterCopy::Renamed(std::string message, const std::string& file) const {
  const std::string own = configuration();
  for (std::size_t at = 0; (at = message.find(own, at)) != std::string::npos;) {
    message.replace(at, own.size(), file);
    at += file.size();
  }
  return message;
}

}  // namespace kelvrin::modulecheck
