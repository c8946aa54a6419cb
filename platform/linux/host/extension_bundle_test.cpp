#include "platform/linux/host/extension_bundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/host/hosted_extension.h"
#include "platform/linux/host/testing/test_bundle.h"

namespace host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing::TestBundle;

// The findings, each after "error: " or "warning: ".
std::vector<std::string> Findings(const TestBundle& bundle) {
  std::vector<std::string> texts;
  for (const Finding& finding : CheckBundle(bundle.path()).findings) {
    texts.push_back((finding.severity == Severity::kError ? "error: " : "warning: ") +
                    finding.text);
  }
  return texts;
}

TEST(ExtensionBundle, WhatIsNoFolderIsNamed) {
  const TestBundle bundle;
  for (const std::string& path : {std::string("/nowhere/X.appex"), bundle.File("Info.plist")}) {
    const BundleCheck check = CheckBundle(path);
    ASSERT_EQ(check.findings.size(), 1U);
    EXPECT_EQ(check.findings[0].severity, Severity::kError);
    EXPECT_EQ(check.findings[0].text, "there is no bundle folder " + path);
  }
}

TEST(ExtensionBundle, EveryMissingFileIsNamed) {
  const std::pair<const char*, const char*> rows[] = {
      {"Info.plist", "error: the bundle has no Contents/Info.plist"},
      {"MacOS/Executable", "error: the bundle's executable Contents/MacOS/Executable is missing"},
      {"Resources/libpkcs11qarn_Lindel_PCSC.dylib",
       "error: the PKCS#11 module Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib is missing"},
      {"Resources/libpkcs11qarn_Vumo_PCSC.dylib",
       "warning: the PKCS#11 module Contents/Resources/libpkcs11qarn_Vumo_PCSC.dylib is missing: "
       "a token cannot be brought up again"},
      {"Resources/config.plist",
       "warning: the bundle has no Contents/Resources/config.plist: no "
       "reader is configured"}};
  for (const auto& [file, finding] : rows) {
    const TestBundle bundle;
    bundle.Remove(file);
    EXPECT_THAT(Findings(bundle), ElementsAre(finding));
  }
}

TEST(ExtensionBundle, AnInfoPlistThatIsNoDictionaryIsNamed) {
  const TestBundle bundle;
  for (const char* text :
       {"", "{ garbage", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>", "( a, b )", "bplist00",
        "\xFF\xFE\x00\x01"}) {
    testing::WriteText(bundle.File("Info.plist"), text);
    EXPECT_THAT(Findings(bundle),
                ElementsAre(HasSubstr("error: the bundle's Contents/Info.plist is no")))
        << text;
  }
}

TEST(ExtensionBundle, EveryMissingKeyIsNamed) {
  for (const char* key :
       {"CFBundlePackageType", "CFBundleExecutable", "CFBundleIdentifier", "NSExtension",
        "NSExtensionPointIdentifier", "NSExtensionAttributes", "com.apple.ctk.class-id",
        "com.apple.ctk.driver-class", "com.apple.ctk.token-type"}) {
    const TestBundle bundle;
    bundle.EditInfo("<key>" + std::string(key) + "<", "<key>Other<");
    EXPECT_THAT(Findings(bundle), ElementsAre(::testing::AllOf(
                                      StartsWith("error: Info.plist lacks"), HasSubstr(key))));
  }
}

TEST(ExtensionBundle, EveryValueThatIsNotTheExpectedOneIsNamed) {
  const TestBundle bundle;
  bundle.EditInfo("XPC!", "APPL");
  bundle.EditInfo("com.apple.ctk-tokens", "com.apple.share-services");
  bundle.EditInfo("smartcard", "persistent");
  bundle.EditInfo("<string>Driver</string>", "<integer>7</integer>");
  bundle.EditInfo("<string>org.example.test</string>", "<string></string>");
  bundle.EditInfo("<key>NSExtensionPointIdentifier<",
                  "<key>NSExtensionPrincipalClass</key><string>X</string>"
                  "<key>NSExtensionPointIdentifier<");
  EXPECT_THAT(Findings(bundle),
              ElementsAre("error: Info.plist has CFBundlePackageType 'APPL' instead of 'XPC!'",
                          HasSubstr("CFBundleIdentifier as a text"),
                          "error: Info.plist has NSExtensionPointIdentifier "
                          "'com.apple.share-services' instead of 'com.apple.ctk-tokens'",
                          "error: Info.plist must not have NSExtensionPrincipalClass",
                          HasSubstr("com.apple.ctk.driver-class as a text"),
                          "error: Info.plist has com.apple.ctk.token-type 'persistent' instead of "
                          "'smartcard'"));
}

TEST(ExtensionBundle, WithoutAReaderNameThereIsAWarning) {
  const TestBundle bundle;
  const std::string begin = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>";
  const std::string end = "</dict></plist>";
  const std::pair<std::string, const char*> rows[] = {
      {begin + end, "warning: config.plist lacks readerName"},
      {begin + "<key>readerName</key><integer>7</integer>" + end,
       "warning: readerName in config.plist is no text"},
      {begin + "<key>readerName</key><string></string>" + end,
       "warning: readerName in config.plist is empty"},
      {"{ garbage", "warning: Contents/Resources/config.plist"}};
  for (const auto& [text, finding] : rows) {
    testing::WriteText(bundle.File("Resources/config.plist"), text);
    EXPECT_THAT(Findings(bundle), ElementsAre(StartsWith(finding)));
  }
}

TEST(ExtensionBundle, ACompleteBundleHasNoFindings) {
  const TestBundle bundle;
  const BundleCheck check = CheckBundle(bundle.path() + "/../Test.appex");
  EXPECT_THAT(check.findings, IsEmpty());
  EXPECT_EQ(check.path, bundle.path());
  EXPECT_EQ(check.executable, bundle.File("MacOS/Executable"));
  EXPECT_EQ(check.driver_class, "Driver");
}

TEST(HostedExtension, IsNotLoadedFromABundleThatCannotWork) {
  const TestBundle missing;
  missing.Remove("MacOS/Executable");
  const TestBundle no_library;
  const TestBundle no_class(KELVRIN_NOISY_EXTENSION, "NoSuchClass");
  const TestBundle no_driver(KELVRIN_NOISY_EXTENSION, "NotADriver");
  const std::pair<const TestBundle*, const char*> rows[] = {
      {&missing, "Contents/MacOS/Executable is missing"},
      {&no_library, "the bundle's executable cannot be loaded: "},
      {&no_class, "'NoSuchClass'"},
      {&no_driver, "'NotADriver'"}};
  for (const auto& [bundle, text] : rows) {
    const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle->path()));
    ASSERT_FALSE(extension);
    EXPECT_THAT(extension.error().description, HasSubstr(text));
  }
}

TEST(HostedExtension, HasTheDriverThatTheBundleNames) {
  const TestBundle bundle(KELVRIN_NOISY_EXTENSION, "NoisyDriver");
  const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle.path()));
  ASSERT_TRUE(extension) << extension.error().description;
  const InsertedCard card = extension->InsertCard();
  EXPECT_FALSE(card.error());
  EXPECT_EQ(card.instance_id(), bundle.path());  // the token is named after its main bundle
}

}  // namespace
}  // namespace host
