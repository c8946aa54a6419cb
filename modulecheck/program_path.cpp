#include "modulecheck/program_path.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "modulecheck/conclusion.h"
#include "modulecheck/files.h"

namespace kelvrin::modulecheck {

std::string ProgramPath(const std::string& name) {
  if (name.find('/') != std::string::npos) return AbsolutePath(name);
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return AbsolutePath(candidate);
  }
  throw Failure("the program " + name + " cannot be found; start it by its path");
}

std::string FindAdapter(const std::string& program) {
  const std::string real = RealPath(program);
  const std::string folder = ParentOf(real.empty() ? program : real);
  for (const char* place : {"/../lib/", "/../adapter/", "/"}) {
    const std::string candidate = RealPath(folder + place + KELVRIN_ADAPTER_FILE);
    if (!candidate.empty() && IsPlainFile(candidate)) return candidate;
  }
  return {};
}

}  // namespace kelvrin::modulecheck
