#include "adapter/shared_state.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <set>

namespace kelvrin::adapter {
namespace {

constexpr std::string_view kConfigEnding = ".conf";

std::set<std::string> FilesIn(const std::string& folder) {
  std::set<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), &closedir);
  if (entries == nullptr) return names;
  while (const dirent* entry = readdir(entries.get())) names.insert(entry->d_name);
  return names;
}

bool IsRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// Null when the file is not loaded, or no copy.
Copy* LoadedCopy(const std::string& path) {
  // Anything else could keep the linker waiting.
  if (!IsRegularFile(path)) return nullptr;
  void* const library = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return nullptr;
  const auto function = reinterpret_cast<CopyFunction>(dlsym(library, kCopyFunction));
  if (function != nullptr) return function();  // held for good: the copy is not to go away
  dlclose(library);
  return nullptr;
}

}  // namespace

std::vector<Copy*> FindLoadedCopies(const std::string& library) {
  const std::string folder = library.substr(0, library.rfind('/') + 1);
  const std::set<std::string> names = FilesIn(folder);
  std::vector<Copy*> copies;
  for (const std::string& name : names) {
    const std::string config = name.substr(0, name.rfind('.')).append(kConfigEnding);
    if (name == config || !names.contains(config)) continue;
    if (Copy* const copy = LoadedCopy(folder + name)) copies.push_back(copy);
  }
  return copies;
}

SharedState& DecideState(Copy& own, const std::vector<Copy*>& others) {
  // In the order of their addresses: two that decide at once then wait for each other in one order.
  std::set<Copy*, std::less<>> copies(others.begin(), others.end());
  copies.insert(&own);
  std::vector<std::unique_lock<std::mutex>> locks;
  locks.reserve(copies.size());
  for (Copy* const copy : copies) locks.emplace_back(copy->deciding);

  SharedState* state = own.state;
  for (const Copy* const copy : copies) {
    if (state == nullptr) state = copy->state;
  }
  if (state == nullptr) state = new SharedState;
  for (Copy* const copy : copies) {
    if (copy->state == nullptr) copy->state = state;
  }
  return *state;
}

}  // namespace kelvrin::adapter
