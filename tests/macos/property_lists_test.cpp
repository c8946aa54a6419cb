// The property lists of the bundle, and spoiled copies of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/macos/bundle_property_lists.h"
#include "tests/macos/property_list.h"
#include "tests/macos/testing/bundle_copy.h"
#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

constexpr char kEntitlements[] = KELVRIN_SOURCE "/resources/KelvrinToken.entitlements";

TEST(PropertyListsTest, ApplicationInfoIsExact) {
  EXPECT_THAT(CheckApplicationInfo(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

TEST(PropertyListsTest, ExtensionInfoIsExact) {
  EXPECT_THAT(CheckExtensionInfo(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

TEST(PropertyListsTest, ConfigurationIsExact) {
  EXPECT_THAT(CheckConfiguration(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

TEST(PropertyListsTest, EntitlementsAreExact) {
  EXPECT_THAT(CheckEntitlements(kEntitlements), IsEmpty());
}

TEST(PropertyListsTest, ApplicationAndExtensionBelongTogether) {
  EXPECT_THAT(CheckInfosTogether(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

class SpoiledPropertyListsTest : public testing::Test {
 protected:
  std::filesystem::path ExtensionInfo() const { return copy_.extension() / "Info.plist"; }
  std::filesystem::path ApplicationInfo() const { return copy_.application() / "Info.plist"; }

  const BundleCopy copy_{KELVRIN_MACOS_BUILD};
};

TEST_F(SpoiledPropertyListsTest, AnotherValue) {
  copy_.Replace(ExtensionInfo(), "TokenDriver", "TokenDriven");
  EXPECT_THAT(CheckExtensionInfo(copy_.bundle()),
              ElementsAre("extension's Info.plist: "
                          "NSExtension/NSExtensionAttributes/com.apple.ctk.driver-class: "
                          "expected \"TokenDriver\", got \"TokenDriven\""));
}

TEST_F(SpoiledPropertyListsTest, AnotherKindOfValue) {
  copy_.Replace(ApplicationInfo(), "<true/>", "<string>true</string>");
  EXPECT_THAT(CheckApplicationInfo(copy_.bundle()),
              ElementsAre("application's Info.plist: NSHighResolutionCapable: expected true, got "
                          "\"true\""));
}

TEST_F(SpoiledPropertyListsTest, APrincipalClass) {
  copy_.Replace(ExtensionInfo(), "<key>NSExtensionPointIdentifier</key>",
                "<key>NSExtensionPrincipalClass</key><string>TokenDriver</string>"
                "<key>NSExtensionPointIdentifier</key>");
  EXPECT_THAT(
      CheckExtensionInfo(copy_.bundle()),
      ElementsAre("extension's Info.plist: expected no NSExtension/NSExtensionPrincipalClass"));
}

TEST_F(SpoiledPropertyListsTest, AMissingKey) {
  copy_.Replace(ExtensionInfo(), "<key>LSMinimumSystemVersion</key>\n\t<string>10.14.6</string>",
                "");
  EXPECT_THAT(CheckExtensionInfo(copy_.bundle()),
              ElementsAre("extension's Info.plist: LSMinimumSystemVersion: expected \"10.14.6\", "
                          "got none"));
}

TEST_F(SpoiledPropertyListsTest, AReaderNameThatIsNoString) {
  copy_.Replace(copy_.resources() / "config.plist", "</key>", "</key><true/><key>rest</key>");
  const std::string name = Quoted(copy_.bundle().options().reader_name);
  EXPECT_THAT(CheckConfiguration(copy_.bundle()),
              ElementsAre("config.plist: readerName: expected " + name + ", got true",
                          "config.plist: expected no rest"));
}

TEST_F(SpoiledPropertyListsTest, AnExtensionOfAnotherApplication) {
  const std::string identifier = copy_.bundle().options().application_id;
  const std::string other = "X" + identifier.substr(1);
  copy_.Replace(ApplicationInfo(), "<string>" + identifier, "<string>" + other);
  copy_.Replace(ApplicationInfo(), "10.14.6", "10.15");
  EXPECT_THAT(CheckInfosTogether(copy_.bundle()),
              ElementsAre("beginning of the extension's identifier: expected " + other + "., got " +
                              identifier + ".",
                          "extension's LSMinimumSystemVersion: expected 10.15, got 10.14.6"));
}

TEST_F(SpoiledPropertyListsTest, AVersionOfOneAlone) {
  const std::string version = copy_.bundle().options().version;
  const std::string other = version + ".1";
  copy_.Replace(ExtensionInfo(), "<string>" + version, "<string>" + other);
  EXPECT_THAT(CheckInfosTogether(copy_.bundle()),
              ElementsAre("extension's CFBundleShortVersionString: expected " + version + ", got " +
                          other));
}

TEST_F(SpoiledPropertyListsTest, AnotherClassOfTheToken) {
  const std::string identifier = copy_.bundle().options().extension_id;
  copy_.Replace(ExtensionInfo(), "class-id</key>\n\t\t\t<string>", "class-id</key><string>x.");
  EXPECT_THAT(CheckInfosTogether(copy_.bundle()),
              ElementsAre("class of the token: expected " + identifier + ", got x." + identifier));
}

TEST_F(SpoiledPropertyListsTest, AnExecutableThatIsNone) {
  copy_.Replace(ApplicationInfo(), "<key>CFBundleExecutable</key>\n\t<string>KelvrinToken",
                "<key>CFBundleExecutable</key><string>Kelvrin");
  std::filesystem::permissions(copy_.extension() / "MacOS/KelvrinToken",
                               std::filesystem::perms::owner_read);
  EXPECT_THAT(CheckInfosTogether(copy_.bundle()),
              ElementsAre("application: expected an executable Kelvrin, got none",
                          "extension: expected an executable KelvrinToken, got none"));
}

TEST_F(SpoiledPropertyListsTest, AKeyThatIsThereTwice) {
  copy_.Replace(ExtensionInfo(), "<key>CFBundleName</key>",
                "<key>CFBundleName</key><string>KelvrinToken</string><key>CFBundleName</key>");
  const std::string what = ExtensionInfo().string() + " has a key twice";
  EXPECT_THAT([&] { CheckExtensionInfo(copy_.bundle()); }, ThrowsMessage<std::runtime_error>(what));
}

TEST_F(SpoiledPropertyListsTest, NoPropertyList) {
  for (const char* text :
       {"", "no XML", "<plist><array/></plist>", "<plist version=\"1.0\"><dict>"}) {
    std::ofstream(ExtensionInfo()) << text;
    EXPECT_THAT([&] { CheckExtensionInfo(copy_.bundle()); },
                ThrowsMessage<std::runtime_error>(ExtensionInfo().string() +
                                                  " is no property list with a dictionary"))
        << text;
  }
}

TEST(SpoiledEntitlementsTest, OneMoreAndOneDenied) {
  const TemporaryFolder folder;
  const std::string spoiled =
      WithReplaced(ReadFile(kEntitlements), "smartcard</key>\n\t<true/>",
                   "smartcard</key><false/><key>com.apple.security.network.client</key><true/>");
  EXPECT_THAT(CheckEntitlements(folder.Write("x.entitlements", spoiled)),
              ElementsAre("entitlements: com.apple.security.smartcard: expected true, got false",
                          "entitlements: expected no com.apple.security.network.client"));
}

TEST(PropertyListTest, FlattensWhatItHolds) {
  const TemporaryFolder folder;
  const auto path = folder.Write(
      "x.plist",
      "<plist version=\"1.0\"><dict><key>a</key><array><string>&lt;ä&gt;</string><array/></array>"
      "<key>b</key><dict/><key>c</key><dict><key>d</key><integer>1</integer></dict></dict></"
      "plist>");
  EXPECT_THAT(ReadPropertyList(path), ElementsAre(Pair("a/[0]", "\"<ä>\""), Pair("a/[1]", "[]"),
                                                  Pair("b", "{}"), Pair("c/d", "an integer")));
}

TEST(BundleTest, SaysWhatToDoWhenThereIsNone) {
  const TemporaryFolder folder;
  EXPECT_THAT([&] { Bundle bundle(folder.path()); },
              ThrowsMessage<std::runtime_error>((folder / "KelvrinToken.app/Contents").string() +
                                                " is missing: run ./dev macos first"));
}

}  // namespace
}  // namespace kelvrin::macos
