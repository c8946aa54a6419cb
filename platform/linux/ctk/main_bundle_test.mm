#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/ctk/ctk_fixture.h"
#include "platform/linux/host/testing/text_files.h"

namespace {

namespace fs = std::filesystem;

// A bundle in a temporary folder; the environment names no language unless a test sets one.
class MainBundle : public testing::Test {
 protected:
  MainBundle() {
    WriteInfo("<key>CFBundleIdentifier</key><string>org.kelvrin.test</string>"
              "<key>CFBundleExecutable</key><string>Extension</string>");
    Write("Resources/config.plist", "x");
    for (const char *name : {"LANGUAGES", "LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
  }
  ~MainBundle() override {
    TKSetMainBundle(nil);
    setenv("LC_ALL", "C.UTF-8", 1);
  }

  void Write(const std::string &name, const std::string &text) const {
    host::testing::WriteText(root_ / "X.appex/Contents" / name, text);
  }
  void WriteInfo(const std::string &entries) const {
    Write("Info.plist", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" +
                            entries + "</dict></plist>");
  }
  void WriteStrings(const std::string &language, const std::string &text) const {
    Write("Resources/" + language + ".lproj/Localizable.strings", "\"KEY\" = \"" + text + "\";\n");
  }
  NSString *Path(const std::string &name) const {
    return [NSString stringWithUTF8String:(root_ / name).c_str()];
  }
  NSBundle *Set() const { return TKSetMainBundle(Path("X.appex")); }
  static std::string Localized() {
    return TextOf([[NSBundle mainBundle] localizedStringForKey:@"KEY" value:@"" table:nil]);
  }

  const kelvrin::TemporaryFolder folder_;
  const fs::path root_ = folder_.path();
};

TEST_F(MainBundle, WhatIsNoFolderChangesNothingAndNilRestoresTheRealOne) {
  NSBundle *before = [NSBundle mainBundle];
  EXPECT_EQ(TKSetMainBundle(Path("none.appex")), nil);
  EXPECT_EQ([NSBundle mainBundle], before);
  NSBundle *bundle = Set();
  EXPECT_NE(bundle, before);
  EXPECT_EQ(TKSetMainBundle(Path("X.appex/Contents/Info.plist")), nil);
  EXPECT_EQ([NSBundle mainBundle], bundle);
  EXPECT_EQ(TKSetMainBundle(nil), before);
  EXPECT_EQ([NSBundle mainBundle], before);
}

TEST_F(MainBundle, MissingOrUnreadableInfoAndAnExecutableThatIsNoStringAreNone) {
  WriteInfo("<key>CFBundleExecutable</key><array/><key>A</key><string>b</string>");
  EXPECT_EQ(TextOf([Set() objectForInfoDictionaryKey:@"A"]), "b");
  EXPECT_EQ([[NSBundle mainBundle] executablePath], nil);
  Write("Info.plist", "<plist><dict><key>CFBundleExecutable</key>");
  EXPECT_EQ([[Set() infoDictionary] count], 0U);
  fs::remove(root_ / "X.appex/Contents/Info.plist");
  NSBundle *bundle = Set();
  ASSERT_NE(bundle, nil);
  EXPECT_EQ([[bundle infoDictionary] count], 0U);
  EXPECT_EQ([bundle executablePath], nil);
  EXPECT_EQ([bundle bundleIdentifier], nil);
}

TEST_F(MainBundle, MissingResourceIsNilAndAMissingStringItsKeyOrTheValueGiven) {
  NSBundle *bundle = Set();
  EXPECT_EQ([bundle pathForResource:@"none" ofType:@"plist"], nil);
  EXPECT_EQ([bundle pathForResource:nil ofType:nil], nil);
  EXPECT_EQ(Localized(), "KEY");
  EXPECT_EQ(TextOf([bundle localizedStringForKey:@"KEY" value:@"given" table:nil]), "given");
  EXPECT_EQ(TextOf([bundle localizedStringForKey:nil value:nil table:nil]), "");
  Write("Resources/en.lproj/Localizable.strings", "\"KEY\" = ");  // does not parse
  EXPECT_EQ(Localized(), "KEY");
}

TEST_F(MainBundle, ReadsApplesLayout) {
  NSBundle *bundle = Set();
  EXPECT_EQ([NSBundle mainBundle], bundle);
  const std::string root = root_ / "X.appex";
  EXPECT_EQ(TextOf([bundle bundlePath]), root);
  EXPECT_EQ(TextOf([bundle resourcePath]), root + "/Contents/Resources");
  EXPECT_EQ(TextOf([bundle executablePath]), root + "/Contents/MacOS/Extension");
  EXPECT_EQ(TextOf([bundle bundleIdentifier]), "org.kelvrin.test");
  EXPECT_EQ(TextOf([bundle objectForInfoDictionaryKey:@"CFBundleExecutable"]), "Extension");
  EXPECT_EQ(TextOf([bundle pathForResource:@"config" ofType:@"plist"]),
            root + "/Contents/Resources/config.plist");
  EXPECT_EQ(TextOf([bundle pathForResource:@"config.plist" ofType:nil]),
            root + "/Contents/Resources/config.plist");
}

TEST_F(MainBundle, ResourcesAreLookedForEachTimeWhereTheBundleIsNow) {
  NSBundle *bundle = Set();
  EXPECT_EQ([bundle pathForResource:@"module" ofType:@"dylib"], nil);
  Write("Resources/module.dylib", "x");
  EXPECT_NE([bundle pathForResource:@"module" ofType:@"dylib"], nil);
  fs::rename(root_ / "X.appex", root_ / "Y.appex");
  EXPECT_EQ([bundle pathForResource:@"config" ofType:@"plist"], nil);
  bundle = TKSetMainBundle(Path("Y.appex"));
  EXPECT_EQ(TextOf([bundle pathForResource:@"config" ofType:@"plist"]),
            (root_ / "Y.appex/Contents/Resources/config.plist").string());
}

TEST_F(MainBundle, StringsAreOfTheFirstLanguageOfTheEnvironmentThatThereIs) {
  WriteStrings("de", "Wörter");
  WriteStrings("en", "words");
  Set();
  EXPECT_EQ(Localized(), "words");
  // Each variable comes before those above it.
  const struct {
    const char *name;
    const char *value;
    const char *text;
  } rows[] = {{"LANG", "de_DE.UTF-8", "Wörter"},   {"LC_MESSAGES", "en_US.UTF-8", "words"},
              {"LC_MESSAGES", "de", "Wörter"},     {"LC_ALL", "C.UTF-8", "words"},
              {"LC_ALL", "de_DE.UTF-8", "Wörter"}, {"LANGUAGES", "en", "words"},
              {"LANGUAGES", "fr;de;en", "Wörter"}};
  for (const auto &row : rows) {
    setenv(row.name, row.value, 1);
    Set();
    EXPECT_EQ(Localized(), row.text) << row.name << "=" << row.value;
  }
}

TEST_F(MainBundle, StringsOfAForeignLanguageFallBackOnTheDevelopmentRegion) {
  WriteInfo("<key>CFBundleDevelopmentRegion</key><string>de</string>");
  WriteStrings("de", "Wörter");
  WriteStrings("en", "words");
  setenv("LANG", "fr_FR.UTF-8", 1);
  Set();
  EXPECT_EQ(Localized(), "Wörter");
}

TEST_F(MainBundle, TableOfStringsIsTheFileOfThatName) {
  Write("Resources/en.lproj/Other.strings", "\"KEY\" = \"other\";");
  EXPECT_EQ(TextOf([Set() localizedStringForKey:@"KEY" value:@"" table:@"Other"]), "other");
}

}  // namespace
