#include "tests/macos/header_compiler.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

// The first folder on the way from a folder to a file below it; "" for files elsewhere.
std::string FirstBelow(const fs::path& folder, const fs::path& file) {
  const fs::path way = file.lexically_relative(folder);
  return way.empty() || *way.begin() == ".." ? "" : way.begin()->string();
}

}  // namespace

std::vector<fs::path> HeaderFolders::Headers() const {
  std::vector<fs::path> headers;
  for (const fs::path& folder : {includes, frameworks}) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.path().extension() == ".h") headers.push_back(entry.path());
    }
  }
  std::ranges::sort(headers);
  return headers;
}

std::string HeaderFolders::FrameworkOf(const fs::path& header) const {
  const std::string framework = FirstBelow(frameworks, header);
  return framework.empty() ? FirstBelow(includes, header) : fs::path(framework).stem().string();
}

std::string Compile(const HeaderFolders& headers, const HeaderCompiler& compiler,
                    const std::string& arguments, const fs::path& folder) {
  if (!fs::exists(compiler.sdk)) {
    throw std::runtime_error(compiler.sdk.string() + " is missing: run ./dev macos first");
  }
  const fs::path output = folder / "compiler.out";
  const fs::path log = folder / "compiler.log";
  // Accessors and methods are missing on purpose: -w. The environment could name other headers.
  const std::string command = "env -i PATH=/usr/bin:/bin '" + compiler.program.string() +
                              "' --target=arm64-apple-macos11.0 -isysroot '" +
                              compiler.sdk.string() + "' -isystem '" + headers.includes.string() +
                              "' -iframework '" + headers.frameworks.string() + "' -I '" +
                              folder.string() + "' -std=c++20 -fobjc-weak -w " + arguments + " >'" +
                              output.string() + "' 2>'" + log.string() + "'";
  if (std::system(command.c_str()) != 0) throw std::runtime_error(ReadFile(log));
  return ReadFile(output);
}

}  // namespace kelvrin::macos
