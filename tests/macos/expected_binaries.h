// The binaries of a build for macOS, and how each of them is linked.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kelvrin::macos {

struct Library {
  std::string install_name;
  std::string compatibility;  // "300.0.0"
};

struct Binary {
  std::string name;  // imports/NAME.txt lists what it imports
  std::filesystem::path path;
  uint32_t file_type = 0;                   // MH_EXECUTE or MH_DYLIB
  std::string install_name = {};            // of a library
  std::string entry = {};                   // of an executable: the symbol of its first function
  bool entry_is_imported = false;           // ... which is a library's
  std::vector<std::string> run_paths = {};  // in the order of the file
  std::vector<Library> libraries;           // in the order of the file
  std::vector<std::string> exports;
  bool has_initialisers = false;  // whether something may run before the entry
  bool has_cxx_runtime = false;   // whether it may import from the C++ library
};

// The library's file name, such as "libSystem.B.dylib" or "Foundation".
std::string ShortName(const std::string& install_name);

// Every library that something of ours may load: what the link stubs stand for.
const std::vector<Library>& KnownLibraries();

// The extension, the application, the adapter and modulecheck of a build folder.
std::vector<Binary> ExpectedBinaries(const std::filesystem::path& build);

// The one of that name. Throws std::runtime_error when there is none, or when its file is missing.
Binary ExpectedBinary(const std::filesystem::path& build, const std::string& name);

}  // namespace kelvrin::macos
