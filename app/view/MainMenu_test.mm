#import "app/view/MainMenu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;

class MainMenuTest : public testing::Test {
 protected:
  // Whether the item of that key can be chosen now.
  bool IsEnabled(NSString *key) const {
    for (NSMenuItem *menu in [menu_ itemArray]) {
      [[menu submenu] update];
      for (NSMenuItem *item in [[menu submenu] itemArray]) {
        if ([[item keyEquivalent] isEqualToString:key]) return [item isEnabled];
      }
    }
    ADD_FAILURE() << "no item has the key " << TextOf(key);
    return false;
  }

  ShownWindow shown_{"en"};
  NSMenu *menu_ = MakeMainMenu(shown_.texts);
};

TEST_F(MainMenuTest, HasItsMenusInBothLanguages) {
  for (const std::string language : {"en", "de"}) {
    ShownWindow shown(language);
    std::vector<std::string> titles;
    for (NSMenuItem *item in [MakeMainMenu(shown.texts) itemArray]) {
      titles.push_back(TextOf([[item submenu] title]));
    }
    const Texts &texts = shown.texts;
    EXPECT_THAT(titles,
                ElementsAre("Kelvrin Token", texts.Get("MENU_EDIT"), texts.Get("MENU_CERTIFICATE"),
                            texts.Get("MENU_WINDOW"), texts.Get("MENU_HELP")));
  }
}

TEST_F(MainMenuTest, ApplicationMenuHasWhatEveryOneHas) {
  std::vector<std::string> items;
  for (NSMenuItem *item in [[[menu_ itemAtIndex:0] submenu] itemArray]) {
    if ([item isSeparatorItem]) continue;
    items.push_back(TextOf([item title]) + ": " + TextOf(NSStringFromSelector([item action])) +
                    " " + TextOf([item keyEquivalent]));
  }
  EXPECT_THAT(items,
              ElementsAre("About Kelvrin Token: orderFrontStandardAboutPanel: ",
                          "Hide Kelvrin Token: hide: h", "Hide Others: hideOtherApplications: h",
                          "Show All: unhideAllApplications: ", "Quit Kelvrin Token: terminate: q"));
}

TEST_F(MainMenuTest, ItemsOfCertificatesNeedOne) {
  shown_.system.AnswerRegistered();
  for (NSString *key in @[ @"t", @"s", @"c" ]) EXPECT_FALSE(IsEnabled(key)) << TextOf(key);
  EXPECT_TRUE(IsEnabled(@"d"));
  EXPECT_TRUE(IsEnabled(@"?"));
  InsertCard(&shown_);
  for (NSString *key in @[ @"t", @"s", @"c" ]) EXPECT_TRUE(IsEnabled(key)) << TextOf(key);
  shown_.model.Select(2);
  EXPECT_FALSE(IsEnabled(@"t"));
}

TEST_F(MainMenuTest, KeysDoWhatTheButtonsDo) {
  InsertCard(&shown_);
  EXPECT_TRUE(PressCommand(menu_, @"t"));
  EXPECT_NE(shown_.model.trial(), nullptr);
  EXPECT_TRUE(PressCommand(menu_, @"s"));
  EXPECT_TRUE(PressCommand(menu_, @"?"));
  EXPECT_THAT(shown_.notes, ElementsAre("offered Ann Example, signature.pem", "opened the guide"));
  EXPECT_TRUE(PressCommand(menu_, @"d"));
  EXPECT_NE(shown_.model.diagnosis(), nullptr);
}

TEST_F(MainMenuTest, CopyTakesTheCertificatesLineWhereNoTextIsSelected) {
  InsertCard(&shown_);
  EXPECT_TRUE(PressCommand(menu_, @"c"));
  EXPECT_THAT(shown_.notes,
              ElementsAre("copied " + TextOf([[shown_.window certificates] selectedLine])));
}

}  // namespace
}  // namespace kelvrin::app
