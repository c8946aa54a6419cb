// The localised texts of the bundle, and spoiled copies of them.
#include "tests/macos/localisation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/macos/strings_table.h"
#include "tests/macos/testing/bundle_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

std::set<std::string> ExtensionKeys() { return UsedTextKeys(KELVRIN_SOURCE "/token"); }
std::set<std::string> ApplicationKeys() { return UsedTextKeys(KELVRIN_SOURCE "/app"); }

TEST(LocalisationTest, SourcesAskForTheseTexts) {
  EXPECT_THAT(ExtensionKeys(), ElementsAre("WRONG_CONSTR"));
  EXPECT_THAT(ApplicationKeys(), ElementsAre("CLOSE", "INSTALLED", "INSTALLED_EXPLANATION",
                                             "MISSING", "MISSING_EXPLANATION", "NOT_INSTALLED",
                                             "NOT_INSTALLED_EXPLANATION", "SHOW_GUIDE"));
}

TEST(LocalisationTest, ExtensionHasItsTexts) {
  const Bundle bundle(KELVRIN_MACOS_BUILD);
  EXPECT_THAT(CheckTexts(bundle.extension() / "Resources", ExtensionKeys()), IsEmpty());
}

TEST(LocalisationTest, ApplicationHasItsTexts) {
  const Bundle bundle(KELVRIN_MACOS_BUILD);
  EXPECT_THAT(CheckTexts(bundle.application() / "Resources", ApplicationKeys()), IsEmpty());
}

class SpoiledTextsTest : public testing::Test {
 protected:
  // What is found when a text of the application's tables gives way to another.
  Findings With(const std::string& language, const std::string& from, const std::string& to) {
    const auto resources = copy_.application() / "Resources";
    copy_.Replace(resources / (language + ".lproj") / "Localizable.strings", from, to);
    return CheckTexts(resources, ApplicationKeys());
  }

  const BundleCopy copy_{KELVRIN_MACOS_BUILD};
};

TEST_F(SpoiledTextsTest, AKeyOfOneLanguageAlone) {
  EXPECT_THAT(With("de", "\"CLOSE\"", "\"CLOSED\""),
              ElementsAre("de: expected CLOSE, got none", "de: expected no CLOSED"));
}

TEST_F(SpoiledTextsTest, AKeyThatIsThereTwice) {
  EXPECT_THAT(With("en", "\"CLOSE\" =", "\"MISSING\" = \"x\"; \"CLOSE\" ="),
              ElementsAre("en: MISSING is there twice"));
}

TEST_F(SpoiledTextsTest, AKeyThatNothingUses) {
  EXPECT_THAT(With("en", "\"CLOSE\" =", "\"OPEN\" = \"x\"; \"CLOSE\" ="),
              ElementsAre("en: expected no OPEN"));
}

TEST_F(SpoiledTextsTest, NoText) {
  EXPECT_THAT(With("de", "\"OK\"", "\"\""), ElementsAre("de: CLOSE has no text"));
}

TEST_F(SpoiledTextsTest, Latin1) {
  EXPECT_THAT(With("de", "geöffnet", "ge\xF6\x66\x66net"),
              ElementsAre("de: a table of texts that is not UTF-8"));
}

TEST_F(SpoiledTextsTest, UmlautsThatWereConvertedTwice) {
  EXPECT_THAT(With("de", "geöffnet", "ge\xC3\x83\xC2\xB6\x66\x66net"),
              ElementsAre("de: INSTALLED_EXPLANATION is damaged"));
}

TEST_F(SpoiledTextsTest, UmlautsInTwoParts) {
  EXPECT_THAT(With("de", "geöffnet", "geo\xCC\x88\x66\x66net"),
              ElementsAre("de: INSTALLED_EXPLANATION is damaged"));
}

TEST_F(SpoiledTextsTest, UmlautsThatWereReplaced) {
  EXPECT_THAT(With("de", "geöffnet", "ge\xEF\xBF\xBD\x66\x66net"),
              ElementsAre("de: INSTALLED_EXPLANATION is damaged"));
}

TEST_F(SpoiledTextsTest, EnglishInThePlaceOfGerman) {
  const auto resources = copy_.resources();
  std::filesystem::copy_file(resources / "en.lproj/Localizable.strings",
                             resources / "de.lproj/Localizable.strings",
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_THAT(CheckTexts(resources, ExtensionKeys()),
              ElementsAre("de: letters of German: expected some, got none"));
}

TEST_F(SpoiledTextsTest, NoTable) {
  EXPECT_THAT(With("en", "\"OK\";", "\"OK\""),
              ElementsAre("en: a table of texts with something else at CLOSE"));
}

TEST(UsedTextKeysTest, FindsWhatTheSourcesAskFor) {
  const TemporaryFolder folder;
  folder.Write("A.mm",
               "// [self text:@\"COMMENT\"]\n"
               "[self text:[x y] ? @\"ONE\" : @\"TWO\"]; [self title:@\"TITLE\"];\n"
               "[b localizedStringForKey:@\"THREE\" value:@\"no key\" table:nil]; @\"PIN\";");
  folder.Write("A_test.mm", "[self text:@\"TEST\"]");
  EXPECT_THAT(UsedTextKeys(folder.path()), ElementsAre("ONE", "THREE", "TWO"));
}

TEST(StringsTableTest, ReadsEscapesAndComments) {
  const StringsTable table = ReadStringsTable("/* \"A\" = \"x\"; */\n\"B\" = \"a\\n\\\"ö\\\"\";\n");
  EXPECT_THAT(table.texts, ElementsAre(Pair("B", "a\n\"ö\"")));
  EXPECT_THAT(table.findings, IsEmpty());
}

TEST(StringsTableTest, RefusesATextInTwoParts) {
  EXPECT_THAT([] { ReadStringsTable("\"A\" = \"x\" \"y\";\n"); },
              ThrowsMessage<std::runtime_error>("a table of texts with something else at A"));
}

TEST(StringsTableTest, RefusesATextThatDoesNotEnd) {
  EXPECT_THAT([] { ReadStringsTable("\"A\" = \"x;\n"); },
              ThrowsMessage<std::runtime_error>("a literal that does not end: x;"));
}

}  // namespace
}  // namespace kelvrin::macos
