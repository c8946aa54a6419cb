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

class ExtensionBundleTest : public ::testing::Test {
 protected:
  // The findings, each after "error: " or "warning: ".
  std::vector<std::string> Findings() const {
    std::vector<std::string> texts;
    for (const Finding& finding : CheckBundle(bundle.path()).findings) {
      texts.push_back((finding.severity == Severity::kError ? "error: " : "warning: ") +
                      finding.text);
    }
    return texts;
  }

  const TestBundle bundle;
};

TEST(ExtensionBundle, AFolderThatDoesNotExistIsNamed) {
  const BundleCheck check = CheckBundle("/nowhere/X.appex");
  ASSERT_EQ(check.findings.size(), 1U);
  EXPECT_TRUE(check.HasErrors());
  EXPECT_EQ(check.findings[0].text, "there is no bundle folder /nowhere/X.appex");
}

TEST_F(ExtensionBundleTest, AFileIsNoBundle) {
  EXPECT_TRUE(CheckBundle(bundle.File("Info.plist")).HasErrors());
}

TEST_F(ExtensionBundleTest, AMissingInfoPlistIsNamed) {
  bundle.Remove("Info.plist");
  EXPECT_THAT(Findings(), ElementsAre("error: the bundle has no Contents/Info.plist"));
}

TEST_F(ExtensionBundleTest, AnInfoPlistThatIsNoDictionaryIsNamed) {
  for (const char* text :
       {"", "{ garbage", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>", "( a, b )", "bplist00",
        "\xFF\xFE\x00\x01"}) {
    testing::WriteText(bundle.File("Info.plist"), text);
    EXPECT_THAT(Findings(), ElementsAre(HasSubstr("error: the bundle's Contents/Info.plist is no")))
        << text;
  }
}

TEST_F(ExtensionBundleTest, EveryMissingKeyIsNamed) {
  for (const char* key :
       {"CFBundlePackageType", "CFBundleExecutable", "CFBundleIdentifier", "NSExtension",
        "NSExtensionPointIdentifier", "NSExtensionAttributes", "com.apple.ctk.class-id",
        "com.apple.ctk.driver-class", "com.apple.ctk.token-type"}) {
    const TestBundle other;
    other.EditInfo("<key>" + std::string(key) + "<", "<key>Other<");
    const BundleCheck check = CheckBundle(other.path());
    ASSERT_EQ(check.findings.size(), 1U) << key;
    EXPECT_EQ(check.findings[0].severity, Severity::kError);
    EXPECT_THAT(check.findings[0].text, HasSubstr(std::string("Info.plist lacks")));
    EXPECT_THAT(check.findings[0].text, HasSubstr(key));
  }
}

TEST_F(ExtensionBundleTest, ValuesThatAreNotTheExpectedOnesAreNamed) {
  bundle.EditInfo("XPC!", "APPL");
  bundle.EditInfo("com.apple.ctk-tokens", "com.apple.share-services");
  bundle.EditInfo("smartcard", "persistent");
  EXPECT_THAT(Findings(),
              ElementsAre("error: Info.plist has CFBundlePackageType 'APPL' instead of 'XPC!'",
                          "error: Info.plist has NSExtensionPointIdentifier "
                          "'com.apple.share-services' instead of 'com.apple.ctk-tokens'",
                          "error: Info.plist has com.apple.ctk.token-type 'persistent' instead of "
                          "'smartcard'"));
}

TEST_F(ExtensionBundleTest, ValuesOfAnotherTypeAreNamed) {
  bundle.EditInfo("<string>Driver</string>", "<integer>7</integer>");
  bundle.EditInfo("<string>org.example.test</string>", "<string></string>");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("CFBundleIdentifier as a text"),
                                      HasSubstr("com.apple.ctk.driver-class as a text")));
}

TEST_F(ExtensionBundleTest, APrincipalClassIsAnError) {
  bundle.EditInfo("<key>NSExtensionPointIdentifier<",
                  "<key>NSExtensionPrincipalClass</key><string>X</string>"
                  "<key>NSExtensionPointIdentifier<");
  EXPECT_THAT(Findings(), ElementsAre("error: Info.plist must not have NSExtensionPrincipalClass"));
}

TEST_F(ExtensionBundleTest, AMissingExecutableIsNamed) {
  bundle.Remove("MacOS/Executable");
  EXPECT_THAT(Findings(), ElementsAre("error: the bundle's executable Contents/MacOS/Executable is "
                                      "missing"));
}

TEST_F(ExtensionBundleTest, WithoutTheFirstModuleNothingWorksAndWithoutTheSecondSomethingDoes) {
  bundle.Remove("Resources/libpkcs11qarn_Lindel_PCSC.dylib");
  bundle.Remove("Resources/libpkcs11qarn_Vumo_PCSC.dylib");
  EXPECT_THAT(
      Findings(),
      ElementsAre(
          ::testing::AllOf(StartsWith("error: "), HasSubstr("libpkcs11qarn_Lindel_PCSC.dylib")),
          ::testing::AllOf(StartsWith("warning: "), HasSubstr("libpkcs11qarn_Vumo_PCSC.dylib"))));
}

TEST_F(ExtensionBundleTest, WithoutAReaderNameThereIsAWarning) {
  const std::string file = bundle.File("Resources/config.plist");
  const auto dictionary = [](const std::string& content) {
    return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + content + "</dict></plist>";
  };
  const auto with = [&](const std::string& text) {
    testing::WriteText(file, text);
    return Findings();
  };
  EXPECT_THAT(with(dictionary("")),
              ElementsAre(HasSubstr("warning: config.plist lacks readerName")));
  EXPECT_THAT(with(dictionary("<key>readerName</key><integer>7</integer>")),
              ElementsAre(HasSubstr("warning: readerName in config.plist is no text")));
  EXPECT_THAT(with(dictionary("<key>readerName</key><string></string>")),
              ElementsAre(HasSubstr("warning: readerName in config.plist is empty")));
  EXPECT_THAT(with("{ garbage"),
              ElementsAre(HasSubstr("warning: Contents/Resources/config.plist")));
  bundle.Remove("Resources/config.plist");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("warning: the bundle has no")));
}

TEST_F(ExtensionBundleTest, SeveralProblemsAreAllNamed) {
  bundle.Remove("MacOS/Executable");
  bundle.Remove("Resources/config.plist");
  bundle.EditInfo("XPC!", "BNDL");
  EXPECT_EQ(Findings().size(), 3U);
}

TEST_F(ExtensionBundleTest, ACompleteBundleHasNoFindings) {
  const BundleCheck check = CheckBundle(bundle.path() + "/../Test.appex");
  EXPECT_THAT(check.findings, IsEmpty());
  EXPECT_EQ(check.path, bundle.path());
  EXPECT_EQ(check.executable, bundle.File("MacOS/Executable"));
  EXPECT_EQ(check.driver_class, "Driver");
  EXPECT_EQ(check.class_id, "org.example.test.class");
}

TEST_F(ExtensionBundleTest, ABundleWithErrorsIsNotLoaded) {
  bundle.Remove("MacOS/Executable");
  const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle.path()));
  ASSERT_FALSE(extension);
  EXPECT_THAT(extension.error().description, HasSubstr("Contents/MacOS/Executable is missing"));
}

TEST_F(ExtensionBundleTest, AnExecutableThatIsNoLibraryIsNamed) {
  const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle.path()));
  ASSERT_FALSE(extension);
  EXPECT_THAT(extension.error().description, HasSubstr("cannot be loaded"));
  EXPECT_THAT(extension.error().description, HasSubstr("MacOS/Executable"));
}

TEST(ExtensionBundle, ADriverClassThatIsNotThereOrNoDriverIsNamed) {
  for (const std::string name : {"NoSuchClass", "NotADriver"}) {
    const TestBundle bundle(KELVRIN_NOISY_EXTENSION, name);
    const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle.path()));
    ASSERT_FALSE(extension);
    EXPECT_THAT(extension.error().description, HasSubstr("'" + name + "'"));
  }
}

TEST(ExtensionBundle, TheDriverIsOfTheClassThatTheBundleNames) {
  const TestBundle bundle(KELVRIN_NOISY_EXTENSION, "NoisyDriver");
  const Result<HostedExtension> extension = HostedExtension::Load(CheckBundle(bundle.path()));
  ASSERT_TRUE(extension) << extension.error().description;
  const InsertedCard card = extension->InsertCard();
  EXPECT_FALSE(card.error());
  EXPECT_EQ(card.instance_id(), bundle.path());  // the token is named after its main bundle
}

}  // namespace
}  // namespace host
