#include "modulecheck/adapter_copy.h"

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "modulecheck/conclusion.h"

namespace kelvrin::modulecheck {

std::string FindAdapter(const std::string& program) {
  const std::string real = RealPath(program);
  const std::string folder = real.substr(0, real.rfind('/'));
  for (const char* place : {"/../lib/", "/../adapter/", "/"}) {
    const std::string candidate = RealPath(folder + place + KELVRIN_ADAPTER_FILE);
    if (IsPlainFile(candidate)) return candidate;
  }
  return {};
}

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

AdapterCopy CopyAdapter(TemporaryFolder& folder, const std::string& adapter,
                        const std::string& module, const std::string& reader_name,
                        const std::string& lines) {
  AdapterCopy copy = {folder.File("adapter.module"), folder.File("adapter.conf")};
  std::ofstream configuration(copy.configuration, std::ios::binary);
  configuration << lines << "\nmodule = " << module << '\n';
  if (!reader_name.empty() && !HasKey(lines, "reader-name")) {
    configuration << "reader-name = " << reader_name << '\n';
  }
  configuration.close();
  const std::string bytes = ReadFile(adapter);
  const int error = errno;
  std::ofstream target(copy.library, std::ios::binary);
  target << bytes;
  target.close();
  if (configuration && target && !bytes.empty()) return copy;
  throw Failure(
      "the adapter " + adapter + " cannot be copied: " + std::generic_category().message(error),
      Conclusion::kNotJudged);
}

}  // namespace kelvrin::modulecheck
