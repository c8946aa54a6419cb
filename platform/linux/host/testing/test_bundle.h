// A complete bundle of a token extension, for tests to take things away from.
#pragma once

#include <string>

#include "platform/linux/host/testing/text_files.h"

namespace host::testing {

class TestBundle {
 public:
  // With the library at that path as its executable, and this driver class.
  explicit TestBundle(const std::string& library = "", const std::string& driver_class = "Driver");

  std::string path() const { return folder_ / "Test.appex"; }
  // A file below Contents.
  std::string File(const std::string& name) const { return path() + "/Contents/" + name; }
  void Remove(const std::string& name) const { std::filesystem::remove(File(name)); }

  // Rewrites Info.plist with a text replaced; throws when the text is not there.
  void EditInfo(const std::string& text, const std::string& replacement) const;

 private:
  TemporaryFolder folder_;
};

}  // namespace host::testing
