#include "tools/program_path.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "tools/failure.h"

namespace kelvrin::modulecheck {

namespace fs = std::filesystem;

fs::path ProgramPath(const std::string& name) {
  std::error_code ignored;
  if (name.find('/') != std::string::npos) return fs::absolute(name, ignored);
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const fs::path candidate = fs::path(folder.empty() ? "." : folder) / name;
    if (access(candidate.c_str(), X_OK) == 0) return fs::absolute(candidate, ignored);
  }
  throw Failure("the program " + name + " cannot be found; start it by its path");
}

fs::path FindAdapter(const fs::path& program) {
  std::error_code ignored;
  const fs::path real = fs::canonical(program, ignored);
  for (const char* folder : {"../lib", "../adapter"}) {
    const fs::path candidate =
        ((real.empty() ? program : real).parent_path() / folder / KELVRIN_ADAPTER_FILE)
            .lexically_normal();
    if (fs::is_regular_file(candidate, ignored)) return candidate;
  }
  return {};
}

}  // namespace kelvrin::modulecheck
