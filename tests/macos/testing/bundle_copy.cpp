#include "tests/macos/testing/bundle_copy.h"

#include <fstream>
#include <stdexcept>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

}  // namespace

BundleCopy::BundleCopy(const fs::path& build) : bundle_(Copied(build, folder_)) {}

fs::path BundleCopy::Copied(const fs::path& build, const TemporaryFolder& folder) {
  const Bundle original(build);  // says what to do when there is none
  const auto how = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
  fs::copy(build / "KelvrinToken.app", folder / "KelvrinToken.app", how);
  fs::create_directory(folder / "bin");
  fs::copy(build / "bin/libkelvrin_adapter.dylib", folder / "bin/libkelvrin_adapter.dylib");
  fs::copy(build / "CMakeCache.txt", folder / "CMakeCache.txt");
  return folder.path();
}

void BundleCopy::Replace(const fs::path& file, const std::string& from,
                         const std::string& to) const {
  const std::string spoiled = WithReplaced(ReadFile(file), from, to);
  std::ofstream(file, std::ios::binary) << spoiled;
}

std::string WithReplaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error("not there: " + from);
  return text.replace(at, from.size(), to);
}

}  // namespace kelvrin::macos
