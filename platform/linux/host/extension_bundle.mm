#include "platform/linux/host/extension_bundle.h"

#import <Foundation/Foundation.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#import "platform/linux/host/foundation.h"
#import "platform/linux/host/property_list.h"

namespace host {
namespace {

// One bundle's check on its way through its files.
class Checker {
 public:
  explicit Checker(BundleCheck *check) : check_(*check) {}

  void error(std::string text) { check_.findings.push_back({Severity::kError, std::move(text)}); }
  void warning(std::string text) {
    check_.findings.push_back({Severity::kWarning, std::move(text)});
  }

  std::string file(const std::string &name) const { return check_.path + "/Contents/" + name; }

  void check_info();
  void check_resources();

 private:
  // The text under a key of a dictionary; empty, with the error noted, when there is none.
  std::string text(NSDictionary *dictionary, NSString *key) {
    id value = [dictionary objectForKey:key];
    if ([value isKindOfClass:[NSString class]] && [value length] > 0) return to_text(value);
    error("Info.plist lacks " + to_text(key) +
          (value == nil ? "" : " as a text that is not empty"));
    return "";
  }
  void expect(NSDictionary *dictionary, NSString *key, const char *expected) {
    const std::string value = text(dictionary, key);
    if (value.empty() || value == expected) return;
    error("Info.plist has " + to_text(key) + " '" + value + "' instead of '" + expected + "'");
  }
  void check_executable(NSDictionary *info);
  void check_extension(NSDictionary *extension);
  void check_configuration();

  BundleCheck &check_;
};

void Checker::check_info() {
  NSDictionary *info = nil;
  switch (read_dictionary(file("Info.plist"), &info)) {
    case ReadDictionary::kMissing:
      return error("the bundle has no Contents/Info.plist");
    case ReadDictionary::kMalformed:
      return error("the bundle's Contents/Info.plist is no property list with a dictionary");
    case ReadDictionary::kRead:
      break;
  }
  expect(info, @"CFBundlePackageType", "XPC!");
  text(info, @"CFBundleIdentifier");
  check_executable(info);
  id extension = [info objectForKey:@"NSExtension"];
  if (![extension isKindOfClass:[NSDictionary class]]) {
    return error("Info.plist lacks the dictionary NSExtension");
  }
  check_extension(extension);
}

void Checker::check_executable(NSDictionary *info) {
  const std::string name = text(info, @"CFBundleExecutable");
  if (name.empty()) return;
  check_.executable = file("MacOS/" + name);
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(check_.executable, ignored)) {
    error("the bundle's executable Contents/MacOS/" + name + " is missing");
  }
}

void Checker::check_extension(NSDictionary *extension) {
  expect(extension, @"NSExtensionPointIdentifier", "com.apple.ctk-tokens");
  // The system finds the driver by its class, and takes a principal class for another kind.
  if ([extension objectForKey:@"NSExtensionPrincipalClass"] != nil) {
    error("Info.plist must not have NSExtensionPrincipalClass");
  }
  id attributes = [extension objectForKey:@"NSExtensionAttributes"];
  if (![attributes isKindOfClass:[NSDictionary class]]) {
    return error("Info.plist lacks the dictionary NSExtensionAttributes in NSExtension");
  }
  check_.class_id = text(attributes, @"com.apple.ctk.class-id");
  check_.driver_class = text(attributes, @"com.apple.ctk.driver-class");
  expect(attributes, @"com.apple.ctk.token-type", "smartcard");
}

void Checker::check_resources() {
  const auto module_is_there = [this](const std::string &name) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(file("Resources/" + name), ignored);
  };
  constexpr char kSetUpModule[] = "libpkcs11qarn_Lindel_PCSC.dylib";
  constexpr char kReinitialisationModule[] = "libpkcs11qarn_Vumo_PCSC.dylib";
  if (!module_is_there(kSetUpModule)) {
    error(std::string("the PKCS#11 module Contents/Resources/") + kSetUpModule + " is missing");
  }
  if (!module_is_there(kReinitialisationModule)) {
    warning(std::string("the PKCS#11 module Contents/Resources/") + kReinitialisationModule +
            " is missing: a token cannot be brought up again");
  }
  check_configuration();
}

// Without a reader name the extension takes the last slot with a card.
void Checker::check_configuration() {
  NSDictionary *configuration = nil;
  switch (read_dictionary(file("Resources/config.plist"), &configuration)) {
    case ReadDictionary::kMissing:
      return warning("the bundle has no Contents/Resources/config.plist: no reader is configured");
    case ReadDictionary::kMalformed:
      return warning("Contents/Resources/config.plist is no property list with a dictionary: "
                     "no reader is configured");
    case ReadDictionary::kRead:
      break;
  }
  id name = [configuration objectForKey:@"readerName"];
  if (name == nil) {
    warning("config.plist lacks readerName: no reader is configured");
  } else if (![name isKindOfClass:[NSString class]]) {
    warning("readerName in config.plist is no text: no reader is configured");
  } else if ([name length] == 0) {
    warning("readerName in config.plist is empty: no reader is configured");
  }
}

}  // namespace

bool BundleCheck::has_errors() const {
  return std::ranges::any_of(
      findings, [](const Finding &finding) { return finding.severity == Severity::kError; });
}

BundleCheck check_bundle(const std::string &path) {
  BundleCheck check;
  std::error_code failure;
  check.path = std::filesystem::weakly_canonical(path, failure);
  if (failure) check.path = path;
  Checker checker(&check);
  if (!std::filesystem::is_directory(check.path, failure)) {
    checker.error("there is no bundle folder " + path);
    return check;
  }
  @autoreleasepool {
    checker.check_info();
    checker.check_resources();
  }
  return check;
}

}  // namespace host
