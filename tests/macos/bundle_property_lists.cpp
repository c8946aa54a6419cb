#include "tests/macos/bundle_property_lists.h"

#include <unistd.h>

#include "tests/macos/property_list.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;

// What both Info.plist have in common.
PropertyList CommonInfo(const Bundle& bundle) {
  const std::string version = Quoted(bundle.options().version);
  return {{"CFBundleDevelopmentRegion", Quoted("en")},
          {"CFBundleDisplayName", Quoted("Kelvrin Token")},
          {"CFBundleExecutable", Quoted("KelvrinToken")},
          {"CFBundleInfoDictionaryVersion", Quoted("6.0")},
          {"CFBundleName", Quoted("KelvrinToken")},
          {"CFBundleShortVersionString", version},
          {"CFBundleSupportedPlatforms/[0]", Quoted("MacOSX")},
          {"CFBundleVersion", version},
          {"LSMinimumSystemVersion", Quoted("10.14.6")}};
}

// A value without its quotation marks; empty when there is none.
std::string Value(const PropertyList& list, const std::string& key) {
  const auto found = list.find(key);
  return found == list.end() ? "" : found->second.substr(1, found->second.size() - 2);
}

void ExpectExecutable(const std::string& what, const fs::path& contents, const PropertyList& info,
                      Findings& findings) {
  const fs::path path = contents / "MacOS" / Value(info, "CFBundleExecutable");
  if (!fs::is_regular_file(path) || access(path.c_str(), X_OK) != 0) {
    findings.push_back(what + ": expected an executable " + path.filename().string() +
                       ", got none");
  }
}

}  // namespace

Findings CheckApplicationInfo(const Bundle& bundle) {
  PropertyList expected = CommonInfo(bundle);
  expected["CFBundleIdentifier"] = Quoted(bundle.options().application_id);
  expected["CFBundlePackageType"] = Quoted("APPL");
  expected["NSHighResolutionCapable"] = "true";
  expected["NSPrincipalClass"] = Quoted("NSApplication");
  return ComparePropertyLists("application's Info.plist", expected,
                              ReadPropertyList(bundle.application() / "Info.plist"));
}

Findings CheckExtensionInfo(const Bundle& bundle) {
  const BuildOptions& options = bundle.options();
  const std::string attributes = "NSExtension/NSExtensionAttributes/com.apple.ctk.";
  PropertyList expected = CommonInfo(bundle);
  expected["CFBundleIdentifier"] = Quoted(options.extension_id);
  expected["CFBundlePackageType"] = Quoted("XPC!");
  expected["NSExtension/NSExtensionPointIdentifier"] = Quoted("com.apple.ctk-tokens");
  expected[attributes + "class-id"] = Quoted(options.extension_id);
  expected[attributes + "driver-class"] = Quoted("TokenDriver");
  expected[attributes + "token-type"] = Quoted("smartcard");
  if (options.aids.size() == 1) expected[attributes + "aid"] = Quoted(options.aids[0]);
  for (size_t i = 0; options.aids.size() > 1 && i < options.aids.size(); ++i) {
    expected[attributes + "aid/[" + std::to_string(i) + "]"] = Quoted(options.aids[i]);
  }
  return ComparePropertyLists("extension's Info.plist", expected,
                              ReadPropertyList(bundle.extension() / "Info.plist"));
}

Findings CheckConfiguration(const Bundle& bundle) {
  return ComparePropertyLists("config.plist",
                              {{"readerName", Quoted(bundle.options().reader_name)}},
                              ReadPropertyList(bundle.extension() / "Resources/config.plist"));
}

Findings CheckEntitlements(const fs::path& entitlements) {
  const PropertyList expected = {{"com.apple.security.app-sandbox", "true"},
                                 {"com.apple.security.smartcard", "true"}};
  return ComparePropertyLists("entitlements", expected, ReadPropertyList(entitlements));
}

Findings CheckInfosTogether(const Bundle& bundle) {
  const PropertyList application = ReadPropertyList(bundle.application() / "Info.plist");
  const PropertyList extension = ReadPropertyList(bundle.extension() / "Info.plist");
  Findings findings;
  const std::string prefix = Value(application, "CFBundleIdentifier") + ".";
  const std::string identifier = Value(extension, "CFBundleIdentifier");
  ExpectEqual("beginning of the extension's identifier", prefix,
              identifier.substr(0, prefix.size()), findings);
  for (const std::string key :
       {"CFBundleShortVersionString", "CFBundleVersion", "LSMinimumSystemVersion"}) {
    ExpectEqual("extension's " + key, Value(application, key), Value(extension, key), findings);
  }
  ExpectEqual("class of the token", identifier,
              Value(extension, "NSExtension/NSExtensionAttributes/com.apple.ctk.class-id"),
              findings);
  ExpectExecutable("application", bundle.application(), application, findings);
  ExpectExecutable("extension", bundle.extension(), extension, findings);
  return findings;
}

}  // namespace kelvrin::macos
