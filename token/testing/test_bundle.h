// An extension bundle on disk whose modules are scripted ones.
#pragma once

#include <filesystem>
#include <string>

namespace token_testing {

constexpr const char* kReaderName = "Kelvrin Reader";
constexpr const char* kLindelModule = "libpkcs11qarn_Lindel_PCSC";
constexpr const char* kVumoModule = "libpkcs11qarn_Vumo_PCSC";

// Makes X.appex in a new folder and makes it the main bundle: both modules, config.plist with the
// reader name kReaderName, and the localised strings of the product. From its destruction on, the
// main bundle is the process's own again, and the folder is gone. Each bundle's modules are copies
// of their own, so that a module left loaded is never met again.
class TestBundle {
 public:
  // `language`: the user's language, "de" or "en"; stays set in the environment.
  explicit TestBundle(const std::string& language = "de");
  ~TestBundle();
  TestBundle(const TestBundle&) = delete;
  TestBundle& operator=(const TestBundle&) = delete;

  std::filesystem::path resources() const { return root_ / "X.appex/Contents/Resources"; }
  std::string ModulePath(const std::string& module) const;

  // Writes config.plist anew, with this reader name.
  void SetReaderName(const std::string& reader_name) const;
  // Writes config.plist anew: the text is the plist's only element, as in "<dict/>".
  void SetConfiguration(const std::string& element) const;
  // Removes a file or folder from the resources, by its whole name.
  void Remove(const std::string& resource) const;

 private:
  const std::filesystem::path root_;
};

}  // namespace token_testing
