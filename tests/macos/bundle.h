// The application's bundle in a build folder, and what it was configured with.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelvrin::macos {

// CMake's cache variables that change what the bundle holds.
struct BuildOptions {
  std::string version;         // of the project
  std::string application_id;  // KELVRIN_APPLICATION_ID, and so on
  std::string extension_id;
  std::string reader_name;
  std::vector<std::string> aids;
  std::filesystem::path module;  // empty: none is configured
  bool module_in_place = false;
  std::filesystem::path module_conf;  // further lines; empty: none
  std::filesystem::path native_lindel;
  std::filesystem::path native_vumo;
};

// Reads CMakeCache.txt of a build folder. Throws std::runtime_error when it is missing or lacks a
// variable.
BuildOptions ReadBuildOptions(const std::filesystem::path& build);

class Bundle {
 public:
  // Throws std::runtime_error when there is none: it says to run ./dev macos first.
  explicit Bundle(const std::filesystem::path& build);

  const std::filesystem::path& build() const { return build_; }
  const BuildOptions& options() const { return options_; }
  // The folders named Contents.
  std::filesystem::path application() const { return build_ / "KelvrinToken.app/Contents"; }
  std::filesystem::path extension() const {
    return application() / "PlugIns/KelvrinToken.appex/Contents";
  }

 private:
  std::filesystem::path build_;
  BuildOptions options_;
};

}  // namespace kelvrin::macos
