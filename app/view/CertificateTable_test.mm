#import "app/view/CertificateTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "app/view/testing/scenes.h"

namespace kelvrin::app {
namespace {

using testing::ElementsAre;

class CertificateTableTest : public testing::Test {
 protected:
  NSTableView *table() const { return [[shown_.window certificates] table]; }
  // What a row shows.
  std::vector<std::string> Row(NSInteger row) const {
    std::vector<std::string> texts;
    for (NSTableColumn *column in [table() tableColumns]) {
      texts.push_back(TextOf([[table() dataSource] tableView:table()
                                   objectValueForTableColumn:column
                                                         row:row]));
    }
    return texts;
  }

  ShownWindow shown_{"en"};
};

TEST_F(CertificateTableTest, ShowsNameIssuerValidityKeyAndWhatItCanDo) {
  InsertCard(&shown_);
  ASSERT_EQ([table() numberOfRows], 3);
  EXPECT_THAT(Row(0), ElementsAre("Ann Example, signature", "Test CA", "2030-01-14",
                                  "RSA, 2048 bits", "signs, decrypts"));
  EXPECT_THAT(Row(1), ElementsAre("Ann Example", "Test CA", "2030-01-14", "EC, 256 bits", "signs"));
  EXPECT_THAT(Row(2), ElementsAre("Example Corporation CA", "Test CA", "2030-01-14",
                                  "RSA, 4096 bits", "no key"));
}

TEST_F(CertificateTableTest, SaysInWordsWhatHasExpiredAndWhatSoonWill) {
  for (const Scene &scene : Scenes()) {
    if (scene.name == "expired") scene.play(&shown_);
  }
  EXPECT_EQ(Row(0)[2], "expires in 12 days, on 2027-01-27");
  EXPECT_EQ(Row(1)[2], "expired on 2027-01-14");
  EXPECT_EQ(Row(2)[2], "not valid before 2027-01-20");
}

TEST_F(CertificateTableTest, HasHeadingsInTheUsersLanguage) {
  ShownWindow german("de");
  std::vector<std::string> headings;
  for (NSTableColumn *column in [[[german.window certificates] table] tableColumns]) {
    headings.push_back(TextOf([[column headerCell] stringValue]));
  }
  EXPECT_EQ(headings.size(), 5U);
  EXPECT_EQ(headings[1], german.texts.Get("ISSUER"));
  EXPECT_EQ(headings[4], "Kann");
}

TEST_F(CertificateTableTest, UsersChoiceIsTheModels) {
  InsertCard(&shown_);
  EXPECT_EQ([table() selectedRow], 0);
  [table() selectRowIndexes:[NSIndexSet indexSetWithIndex:1] byExtendingSelection:NO];
  EXPECT_EQ(shown_.model.selection(), 1U);
  EXPECT_EQ(TextOf([[[shown_.window detail] name] stringValue]), "Ann Example");
}

TEST_F(CertificateTableTest, ArrowKeysChoose) {
  InsertCard(&shown_);
  const unichar down = NSDownArrowFunctionKey;
  PressKey([shown_.window window], [NSString stringWithCharacters:&down length:1],
           NSFunctionKeyMask);
  EXPECT_EQ(shown_.model.selection(), 1U);
}

TEST_F(CertificateTableTest, SelectionAndScrollPositionSurviveARefresh) {
  std::vector<Certificate> certificates;
  for (int i = 0; i < 40; ++i) certificates.push_back(RsaCertificate("Nr. " + std::to_string(i)));
  shown_.system.Insert("4711", "X", certificates);
  ASSERT_EQ([table() numberOfRows], 40);
  [table() selectRowIndexes:[NSIndexSet indexSetWithIndex:30] byExtendingSelection:NO];
  [table() scrollRowToVisible:30];
  const CGFloat position = NSMinY([table() visibleRect]);
  ASSERT_GT(position, 0);
  shown_.system.Change();
  // Another card, whose certificates come behind.
  shown_.system.Insert("4712", "Y", {EcCertificate("Other")});
  EXPECT_EQ([table() numberOfRows], 41);
  EXPECT_EQ([table() selectedRow], 30);
  EXPECT_EQ(NSMinY([table() visibleRect]), position);
}

TEST_F(CertificateTableTest, SelectionFollowsItsCertificateWhenAnotherCardGoes) {
  shown_.system.Insert("1", "X", {RsaCertificate("First"), RsaCertificate("Second")});
  shown_.system.Insert("2", "Y", {RsaCertificate("Third")});
  [table() selectRowIndexes:[NSIndexSet indexSetWithIndex:2] byExtendingSelection:NO];
  shown_.system.Pull("1");
  EXPECT_EQ([table() selectedRow], 0);
  EXPECT_EQ(TextOf([[[shown_.window detail] name] stringValue]), "Third");
}

TEST_F(CertificateTableTest, NamesOfAnyScriptAreShownAsTheyAre) {
  const std::string right_to_left = "\u05D0\u05E0\u05D4 \u05DB\u05D4\u05DF";
  const std::string combining = "Zo\u0308e\u0301";
  shown_.system.Insert("4711", "X", {RsaCertificate(right_to_left), RsaCertificate(combining)});
  EXPECT_EQ(Row(0)[0], right_to_left);
  EXPECT_EQ(Row(1)[0], combining);
}

TEST_F(CertificateTableTest, SelectedLineHasAllColumns) {
  EXPECT_EQ([[shown_.window certificates] selectedLine], nil);
  InsertCard(&shown_);
  EXPECT_EQ(TextOf([[shown_.window certificates] selectedLine]),
            "Ann Example, signature\tTest CA\t2030-01-14\tRSA, 2048 bits\tsigns, decrypts");
}

}  // namespace
}  // namespace kelvrin::app
