#import "app/InstallationMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/ctk/ctk_fixture.h"
#include "tests/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// The application's own texts, in a bundle in the user's folder of applications, with the extension
// inside unless a test takes it out.
class InstallationMessageTest : public testing::Test {
 protected:
  InstallationMessageTest() {
    setenv("HOME", folder_.path().c_str(), 1);
    const fs::path contents = App() / "Contents";
    fs::create_directories(contents / "Resources");
    fs::create_directories(Extension());
    std::ofstream(contents / "Info.plist")
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
           "<key>CFBundleIdentifier</key><string>org.kelvrin.test</string>"
           "<key>CFBundleExecutable</key><string>KelvrinToken</string></dict></plist>";
    for (const char *language : {"de", "en"}) {
      const std::string folder = std::string(language) + ".lproj";
      fs::copy(fs::path(KELVRIN_APP) / folder, contents / "Resources" / folder);
    }
  }
  ~InstallationMessageTest() override {
    TKSetMainBundle(nil);
    unsetenv("LANGUAGES");
    setenv("HOME", home_.c_str(), 1);
  }

  fs::path App() const { return folder_.path() / "Applications/KelvrinToken.app"; }
  fs::path Extension() const { return App() / "Contents/PlugIns/KelvrinToken.appex"; }
  InstallationMessage *Message(const char *language) const {
    setenv("LANGUAGES", language, 1);
    NSString *path = [NSString stringWithUTF8String:App().c_str()];
    return [[[InstallationMessage alloc] initWithBundle:TKSetMainBundle(path)] autorelease];
  }

  static std::string Home() {
    const char *home = getenv("HOME");
    return home == nullptr ? "" : home;
  }

  const std::string home_ = Home();
  const kelvrin::TemporaryFolder folder_;
};

TEST_F(InstallationMessageTest, SaysInEnglishThatTheExtensionIsInstalled) {
  EXPECT_EQ(TextOf([Message("en") title]), "Kelvrin Token is installed");
}

TEST_F(InstallationMessageTest, SaysInGermanThatTheExtensionIsInstalled) {
  EXPECT_EQ(TextOf([Message("de") title]), "Kelvrin Token ist installiert");
}

TEST_F(InstallationMessageTest, ExplainsHowToSeeWhetherTheSystemUsesItAndWhereTheGuideIs) {
  for (const char *language : {"en", "de"}) {
    const std::string text = TextOf([Message(language) explanation]);
    for (const char *part : {"pluginkit -m -p com.apple.ctk-tokens", "security list-smartcards",
                             "Contents/Resources/macos.md"}) {
      EXPECT_NE(text.find(part), std::string::npos) << language << " lacks " << part;
    }
  }
}

TEST_F(InstallationMessageTest, SaysElsewhereWhereToMoveTheApplication) {
  setenv("HOME", "/elsewhere", 1);
  EXPECT_EQ(TextOf([Message("en") title]), "Kelvrin Token is not installed yet");
  EXPECT_EQ(TextOf([Message("de") title]), "Kelvrin Token ist noch nicht installiert");
  EXPECT_THAT(TextOf([Message("en") explanation]),
              HasSubstr("Move this application to /Applications and open it there again"));
  EXPECT_THAT(TextOf([Message("de") explanation]), HasSubstr("(/Applications) und öffnen Sie es"));
}

TEST_F(InstallationMessageTest, SaysElsewhereTooThatTheExtensionIsMissing) {
  setenv("HOME", "/elsewhere", 1);
  fs::remove_all(Extension());
  EXPECT_EQ(TextOf([Message("en") title]), "The extension is missing");
  EXPECT_THAT(TextOf([Message("en") explanation]), HasSubstr("install the application again"));
}

TEST_F(InstallationMessageTest, SaysThatTheExtensionIsMissing) {
  fs::remove_all(Extension());
  EXPECT_EQ(TextOf([Message("en") title]), "The extension is missing");
  EXPECT_EQ(TextOf([Message("de") title]), "Die Erweiterung fehlt");
  EXPECT_NE(TextOf([Message("en") explanation]).find("install the application again"),
            std::string::npos);
}

TEST_F(InstallationMessageTest, GuideIsAResource) {
  EXPECT_EQ([Message("en") guidePath], nil);
  std::ofstream(App() / "Contents/Resources/macos.md") << "guide";
  EXPECT_EQ(TextOf([[Message("en") guidePath] lastPathComponent]), "macos.md");
}

TEST_F(InstallationMessageTest, ButtonsHaveWordsInBothLanguages) {
  EXPECT_EQ(TextOf([Message("en") closeButton]), "OK");
  EXPECT_EQ(TextOf([Message("de") closeButton]), "OK");
  EXPECT_EQ(TextOf([Message("en") guideButton]), "Show Guide");
  EXPECT_EQ(TextOf([Message("de") guideButton]), "Anleitung zeigen");
}

}  // namespace
