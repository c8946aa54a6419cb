// Runs the compiler over our headers of Apple's frameworks.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelvrin::macos {

// Where the headers lie.
struct HeaderFolders {
  std::filesystem::path includes;    // FRAMEWORK/NAME.h
  std::filesystem::path frameworks;  // FRAMEWORK.framework/Headers/NAME.h

  // All of them, in the order of their paths.
  std::vector<std::filesystem::path> Headers() const;

  // The framework that a header belongs to; "" for headers outside the folders.
  std::string FrameworkOf(const std::filesystem::path& header) const;
};

struct HeaderCompiler {
  std::filesystem::path program;
  std::filesystem::path sdk;  // for the headers of the C library
};

// Compiles Objective-C++ for arm64, which may import the headers; `arguments` name the source and
// say what to do with it, files are left in `folder`. Returns what the compiler prints. Throws
// std::runtime_error with its complaints when it fails, and when there is no SDK.
std::string Compile(const HeaderFolders& headers, const HeaderCompiler& compiler,
                    const std::string& arguments, const std::filesystem::path& folder);

}  // namespace kelvrin::macos
