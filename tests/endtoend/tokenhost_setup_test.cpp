// What tokenhost says of set-ups that fail, and of a card whose set-up succeeds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/endtoend/tokenhost_on_card.h"

namespace endtoend {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class TokenhostSetUp : public TokenhostOnCard {
 protected:
  std::filesystem::path Lindel(const std::string& extension) const {
    return bundle_ / ("Contents/Resources/libpkcs11qarn_Lindel_PCSC" + extension);
  }

  void ReplaceModule(const std::filesystem::path& library) const {
    std::filesystem::copy_file(library, Lindel(".dylib"),
                               std::filesystem::copy_options::overwrite_existing);
  }

  // Replaces a text in a file of the bundle.
  void Edit(const std::string& file, const std::string& from, const std::string& to) const {
    const std::filesystem::path path = bundle_ / "Contents" / file;
    std::string text = ReadText(path);
    ASSERT_NE(text.find(from), std::string::npos);
    WriteText(path, text.replace(text.find(from), from.size(), to));
  }

  // Lists with a card whose set-up fails. It leaves the module loaded by design, which a leak check
  // would have the last word about.
  Outcome ListInVain(const std::vector<std::string>& options = {}) const {
    std::vector<std::string> all = {"/usr/bin/env", "LSAN_OPTIONS=detect_leaks=0",
                                    KELVRIN_TOKENHOST, "--bundle", bundle_};
    all.insert(all.end(), options.begin(), options.end());
    all.emplace_back("list");
    return RunProgram(all);
  }

  // Lists, which fails, and ends with one sentence that names the bundle and the cause.
  Outcome ExpectFailure(const std::string& cause) const {
    Outcome outcome = ListInVain();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                EndsWith("\ntokenhost: the set-up of the card with " + bundle_.string() +
                         " failed: " + cause + " (CryptoTokenKit, code -2)\n"));
    return outcome;
  }
};

TEST_F(TokenhostSetUp, NamesWhatTheBundleLacks) {
  std::filesystem::remove(Lindel(".dylib"));
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, HasSubstr("libpkcs11qarn_Lindel_PCSC.dylib"));
}

TEST_F(TokenhostSetUp, FailsWithWhatIsNoModule) {
  WriteText(Path("no library"), "no library");
  const std::pair<std::filesystem::path, const char*> rows[] = {
      {Path("no library"), "kvdl_dlopen failed: "},
      {SCRIPTED_NO_FUNCTION_LIST_PATH, ""},
      {SCRIPTED_FAILING_PATH, "C_GetFunctionList failed "}};
  for (const auto& [library, said] : rows) {
    SCOPED_TRACE(library);
    ReplaceModule(library);
    const Outcome outcome = ExpectFailure("Fehler beim Laden von PKCS11-Modul.");
    EXPECT_THAT(outcome.errors,
                AllOf(HasSubstr(said), HasSubstr("log error: Fehler beim Initialisieren.\n")));
  }
}

TEST_F(TokenhostSetUp, FailsWithoutSlots) {
  WriteText(Lindel(".conf"), ReadText(Lindel(".conf")) + "token-label = of no token\n");
  ExpectFailure("Keine Slots gefunden.");
}

TEST_F(TokenhostSetUp, FailsWithSeveralSlotsAndNoReaderName) {
  ReplaceModule(kelvrin::SoftHsmCard::Module());
  Edit("Resources/config.plist", "<string>Kelvrin Reader</string>", "<string></string>");
  ExpectFailure("Kartenlesername nicht definiert.");
}

TEST_F(TokenhostSetUp, ShowsWhatTheAdapterSaysOfItsConfiguration) {
  WriteText(Lindel(".conf"), "modul = x\n");
  const Outcome outcome = ExpectFailure(
      "PKCS11 function <private> failed: rv = <private> (0x5); --show-private shows what is "
      "private");
  EXPECT_THAT(outcome.errors, HasSubstr("libpkcs11qarn_Lindel_PCSC.conf:1: "));
  EXPECT_THAT(ListInVain({"--show-private"}).errors,
              HasSubstr("failed: PKCS11 function C_Initialize failed: rv = CKR_GENERAL_ERROR (0x5) "
                        "(CryptoTokenKit, code -2)\n"));
}

TEST_F(TokenhostSetUp, ListsTheItemsAndNothingElseOnStandardOutput) {
  const Outcome outcome = Run({"list", "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const auto list = nlohmann::json::parse(outcome.output, nullptr, false);
  EXPECT_EQ(list.value("instanceID", ""), "4711");
  EXPECT_EQ(list.value("duplicateObjectIDs", nlohmann::json()), nlohmann::json::array());
  std::map<std::string, std::string> kinds;
  for (const auto& item : list.value("items", nlohmann::json::array())) {
    kinds[item.value("objectID", "")] = item.value("kind", "");
  }
  EXPECT_EQ(
      kinds,
      (std::map<std::string, std::string>{
          {"0101", "certificate"}, {"0102", "certificate"}, {kRsaKey, "key"}, {kEcKey, "key"}}));
}

TEST_F(TokenhostSetUp, LoadsABundleThatWasMovedAndItsExecutableRenamed) {
  const std::filesystem::path moved = card_.directory() / "elsewhere" / "Renamed.appex";
  std::filesystem::create_directories(moved.parent_path());
  std::filesystem::rename(bundle_, moved);
  bundle_ = moved;
  std::filesystem::rename(moved / "Contents/MacOS/KelvrinToken", moved / "Contents/MacOS/Other");
  Edit("Info.plist", "<key>CFBundleExecutable</key>\n\t<string>KelvrinToken",
       "<key>CFBundleExecutable</key>\n\t<string>Other");
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr(kEcKey));
}

TEST_F(TokenhostSetUp, InstantiatesTheClassThatTheBundleNames) {
  Edit("Info.plist", "<string>TokenDriver</string>", "<string>TokenSession</string>");
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("TokenSession"));
}

// The names of what a program defines.
std::string SymbolsOf(const std::string& program) {
  const Outcome outcome = RunProgram({KELVRIN_NM, "--defined-only", program});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  return outcome.output;
}

TEST(TokenhostProgram, HasTheExtensionOnlyFromTheBundle) {
  const std::string host = SymbolsOf(KELVRIN_TOKENHOST);
  const std::string extension = SymbolsOf(KELVRIN_EXTENSION);
  for (const char* name : {"C_LoadModule", "p11_error", "_OBJC_CLASS_TokenDriver"}) {
    EXPECT_THAT(extension, HasSubstr(name));
    EXPECT_THAT(host, Not(HasSubstr(name)));
  }
  EXPECT_THAT(host, HasSubstr(" T main\n"));
}

}  // namespace
}  // namespace endtoend
