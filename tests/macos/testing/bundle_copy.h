// A copy of the bundle, for a test to spoil.
#pragma once

#include <filesystem>
#include <string>

#include "tests/macos/bundle.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {

class BundleCopy {
 public:
  // Copies the application, the adapter and the cache of a build folder. Throws std::runtime_error
  // when there is no bundle.
  explicit BundleCopy(const std::filesystem::path& build);

  // The copy, with its options.
  const Bundle& bundle() const { return bundle_; }
  // Paths in it.
  std::filesystem::path application() const { return bundle_.application(); }
  std::filesystem::path extension() const { return bundle_.extension(); }
  std::filesystem::path resources() const { return extension() / "Resources"; }

  // Puts a text in the place of the first occurrence of another in a file. Throws
  // std::runtime_error when there is none.
  void Replace(const std::filesystem::path& file, const std::string& from,
               const std::string& to) const;

 private:
  // The build folder of the copy.
  static std::filesystem::path Copied(const std::filesystem::path& build,
                                      const TemporaryFolder& folder);

  TemporaryFolder folder_;
  Bundle bundle_;
};

// Puts a text in the place of the first occurrence of another. Throws std::runtime_error when there
// is none.
std::string WithReplaced(std::string text, const std::string& from, const std::string& to);

}  // namespace kelvrin::macos
