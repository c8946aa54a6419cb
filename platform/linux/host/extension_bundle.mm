#include "platform/linux/host/extension_bundle.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <utility>

#import "platform/linux/host/foundation.h"

namespace host {
namespace {

enum class ReadResult { kRead, kMissing, kMalformed };

// Reads a property list whose root is a dictionary; it is autoreleased.
ReadResult ReadDictionary(const std::string &path, NSDictionary **dictionary) {
  NSData *data = [NSData dataWithContentsOfFile:ToString(path)];
  if (data == nil) return ReadResult::kMissing;
  id root = [NSPropertyListSerialization propertyListWithData:data
                                                      options:NSPropertyListImmutable
                                                       format:nullptr
                                                        error:nullptr];
  if (![root isKindOfClass:[NSDictionary class]]) return ReadResult::kMalformed;
  *dictionary = root;
  return ReadResult::kRead;
}

bool IsFile(const std::string &path) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(path, ignored);
}

// One bundle's check on its way through its files.
class Checker {
 public:
  explicit Checker(BundleCheck *check) : check_(*check) {}

  void AddError(std::string text) {
    check_.findings.push_back({Severity::kError, std::move(text)});
  }
  void AddWarning(std::string text) {
    check_.findings.push_back({Severity::kWarning, std::move(text)});
  }

  std::string File(const std::string &name) const { return check_.path + "/Contents/" + name; }

  void CheckInfo();
  void CheckResources();

 private:
  // The text under a key of a dictionary; empty, with the error noted, when there is none.
  std::string Text(NSDictionary *dictionary, NSString *key) {
    id value = [dictionary objectForKey:key];
    if ([value isKindOfClass:[NSString class]] && [value length] > 0) return ToText(value);
    AddError("Info.plist lacks " + ToText(key) +
             (value == nil ? "" : " as a text that is not empty"));
    return "";
  }
  void Expect(NSDictionary *dictionary, NSString *key, const char *expected) {
    const std::string value = Text(dictionary, key);
    if (value.empty() || value == expected) return;
    AddError("Info.plist has " + ToText(key) + " '" + value + "' instead of '" + expected + "'");
  }
  void CheckExecutable(NSDictionary *info);
  void CheckExtension(NSDictionary *extension);
  void CheckConfiguration();

  BundleCheck &check_;
};

void Checker::CheckInfo() {
  NSDictionary *info = nil;
  switch (ReadDictionary(File("Info.plist"), &info)) {
    case ReadResult::kMissing:
      return AddError("the bundle has no Contents/Info.plist");
    case ReadResult::kMalformed:
      return AddError("the bundle's Contents/Info.plist is no property list with a dictionary");
    case ReadResult::kRead:
      break;
  }
  Expect(info, @"CFBundlePackageType", "XPC!");
  Text(info, @"CFBundleIdentifier");
  CheckExecutable(info);
  id extension = [info objectForKey:@"NSExtension"];
  if (![extension isKindOfClass:[NSDictionary class]]) {
    return AddError("Info.plist lacks the dictionary NSExtension");
  }
  CheckExtension(extension);
}

void Checker::CheckExecutable(NSDictionary *info) {
  const std::string name = Text(info, @"CFBundleExecutable");
  if (name.empty()) return;
  check_.executable = File("MacOS/" + name);
  if (!IsFile(check_.executable)) {
    AddError("the bundle's executable Contents/MacOS/" + name + " is missing");
  }
}

void Checker::CheckExtension(NSDictionary *extension) {
  Expect(extension, @"NSExtensionPointIdentifier", "com.apple.ctk-tokens");
  // The system finds the driver by its class, and takes a principal class for another kind.
  if ([extension objectForKey:@"NSExtensionPrincipalClass"] != nil) {
    AddError("Info.plist must not have NSExtensionPrincipalClass");
  }
  id attributes = [extension objectForKey:@"NSExtensionAttributes"];
  if (![attributes isKindOfClass:[NSDictionary class]]) {
    return AddError("Info.plist lacks the dictionary NSExtensionAttributes in NSExtension");
  }
  Text(attributes, @"com.apple.ctk.class-id");
  check_.driver_class = Text(attributes, @"com.apple.ctk.driver-class");
  Expect(attributes, @"com.apple.ctk.token-type", "smartcard");
}

void Checker::CheckResources() {
  constexpr char kSetUpModule[] = "libpkcs11qarn_Lindel_PCSC.dylib";
  constexpr char kReinitialisationModule[] = "libpkcs11qarn_Vumo_PCSC.dylib";
  if (!IsFile(File(std::string("Resources/") + kSetUpModule))) {
    AddError(std::string("the PKCS#11 module Contents/Resources/") + kSetUpModule + " is missing");
  }
  if (!IsFile(File(std::string("Resources/") + kReinitialisationModule))) {
    AddWarning(std::string("the PKCS#11 module Contents/Resources/") + kReinitialisationModule +
               " is missing: a token cannot be brought up again");
  }
  CheckConfiguration();
}

// Without a reader name the extension takes the last slot with a card.
void Checker::CheckConfiguration() {
  NSDictionary *configuration = nil;
  switch (ReadDictionary(File("Resources/config.plist"), &configuration)) {
    case ReadResult::kMissing:
      return AddWarning(
          "the bundle has no Contents/Resources/config.plist: no reader is configured");
    case ReadResult::kMalformed:
      return AddWarning("Contents/Resources/config.plist is no property list with a dictionary: "
                        "no reader is configured");
    case ReadResult::kRead:
      break;
  }
  id name = [configuration objectForKey:@"readerName"];
  if (name == nil) {
    AddWarning("config.plist lacks readerName: no reader is configured");
  } else if (![name isKindOfClass:[NSString class]]) {
    AddWarning("readerName in config.plist is no text: no reader is configured");
  } else if ([name length] == 0) {
    AddWarning("readerName in config.plist is empty: no reader is configured");
  }
}

}  // namespace

BundleCheck CheckBundle(const std::string &path) {
  BundleCheck check;
  std::error_code failure;
  check.path = std::filesystem::weakly_canonical(path, failure);
  if (failure) check.path = path;
  Checker checker(&check);
  if (!std::filesystem::is_directory(check.path, failure)) {
    checker.AddError("there is no bundle folder " + path);
    return check;
  }
  @autoreleasepool {
    checker.CheckInfo();
    checker.CheckResources();
  }
  return check;
}

}  // namespace host
