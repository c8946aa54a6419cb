#import "app/view/MainMenu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MainMenuTest : public testing::Test {
 protected:
  // Whether the item of that title can be chosen now.
  bool IsEnabled(const std::string &title) const {
    for (NSMenuItem *menu in [menu_ itemArray]) {
      [[menu submenu] update];
      for (NSMenuItem *item in [[menu submenu] itemArray]) {
        if (TextOf([item title]) == title) return [item isEnabled];
      }
    }
    ADD_FAILURE() << "no item has the title " << title;
    return false;
  }
  // The items that act on the selected certificate and can be chosen now.
  std::vector<std::string> EnabledItems() const {
    std::vector<std::string> enabled;
    for (const char *title : {"MENU_COPY", "BUTTON_TRY", "BUTTON_COPY_SSH", "BUTTON_SAVE"}) {
      if (IsEnabled(shown_.texts.Get(title))) enabled.emplace_back(title);
    }
    return enabled;
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
  EXPECT_THAT(EnabledItems(), IsEmpty());
  EXPECT_TRUE(IsEnabled(shown_.texts.Get("BUTTON_REPORT")));
  EXPECT_TRUE(IsEnabled(shown_.texts.Get("MENU_GUIDE")));
  InsertCard(&shown_);
  EXPECT_THAT(EnabledItems(),
              ElementsAre("MENU_COPY", "BUTTON_TRY", "BUTTON_COPY_SSH", "BUTTON_SAVE"));
  shown_.system.Pull("4711");
  EXPECT_THAT(EnabledItems(), IsEmpty());
}

TEST_F(MainMenuTest, AKeyThatTheCardDoesNotHaveIsNotTried) {
  Certificate certificate = RsaCertificate("Ann Example");
  certificate.has_key = false;
  shown_.system.Insert("4711", kReader, {certificate});
  EXPECT_THAT(EnabledItems(), ElementsAre("MENU_COPY", "BUTTON_COPY_SSH", "BUTTON_SAVE"));
}

// Copying takes for granted that there is a line.
TEST_F(MainMenuTest, AKeyWithoutAnSshLineIsNotCopied) {
  Certificate p384 = EcCertificate("Ann Example, P-384");
  p384.key_bits = 384;
  p384.public_key.assign(97, 4);
  Certificate other = EcCertificate("Ann Example, other");
  other.key_type = KeyType::kOther;
  other.key_bits = 0;
  other.public_key.clear();
  shown_.system.Insert("4711", kReader, {EcCertificate("Ann Example, P-256"), p384, other});
  EXPECT_TRUE(IsEnabled(shown_.texts.Get("BUTTON_COPY_SSH")));
  for (const size_t row : {1U, 2U}) {
    shown_.model.Select(row);
    EXPECT_THAT(EnabledItems(), ElementsAre("MENU_COPY", "BUTTON_TRY", "BUTTON_SAVE")) << row;
  }
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
