// The report and the list, whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/model/testing/opened_window.h"
#include "app/text/testing/strings_file.h"

namespace kelvrin::app {
namespace {

using testing::HasSubstr;
using testing::Not;
using RunEnd = ProcessResult::End;

// How a certificate's fingerprint looks that begins with these digits; the rest of it is zeros.
std::string FingerprintOf(std::string digits) {
  while (digits.size() < 95) digits += ":00";
  return digits;
}

class ReportTest : public OpenedWindow {
 protected:
  std::string Report() const { return English().Report(*model_, *model_->diagnosis()); }
  std::string List() const { return English().List(*model_); }
  void Say(const std::string& program, const ProcessResult& result) {
    EXPECT_TRUE(system_.Answer(program, result)) << program;
  }
  // What the report says of the first program.
  std::string Said(const ProcessResult& result) {
    model_->Diagnose();
    Say("codesign", result);
    const std::string report = Report();
    const size_t begin = report.find("$ /usr/bin/codesign");
    return report.substr(report.find('\n', begin) + 1);
  }
};

TEST_F(ReportTest, ListOfACard) {
  Certificate keyless = KeylessCertificate("CA");
  keyless.not_after = system_.now - 1;
  system_.Insert("4711", "Reader 1", {RsaCertificate("Zoe\u0308 שלום"), keyless});
  EXPECT_EQ(List(),
            "Card 4711 in reader Reader 1: 2 certificates\n"
            "\n"
            "Zoe\u0308 שלום\n"
            "    Issuer: Test CA\n"
            "    Valid until: 2030-01-14\n"
            "    Key: RSA, 2048 bits; signs, decrypts\n"
            "    Key’s name: Zoe\u0308 שלום key\n"
            "    Serial number: 3F:A0\n"
            "    SHA-256 fingerprint: " +
                FingerprintOf("5A:6F:65:CC:88:20:D7:A9:D7:9C:D7:95:D7:9D") +
                "\n"
                "    Reader: Reader 1\n"
                "\n"
                "CA\n"
                "    Issuer: Test CA\n"
                "    Valid until: expired on 2027-01-15\n"
                "    Key: RSA, 4096 bits; no key\n"
                "    no key: The card offers no key for this certificate, as is usual for those "
                "of issuers.\n"
                "    Serial number: 3F:A0\n"
                "    SHA-256 fingerprint: " +
                FingerprintOf("43:41") +
                "\n"
                "    Reader: Reader 1\n");
}

TEST_F(ReportTest, ListWithoutACardSaysWhatToDo) {
  system_.AnswerRegistered();
  EXPECT_EQ(List(),
            "There is no reader\nConnect a smart-card reader. If one is connected, try another "
            "port or cable; some readers need their maker’s driver.\n");
}

TEST_F(ReportTest, TheWholeReport) {
  system_.AnswerRegistered();
  system_.presence.readers = {{"Reader 1", SlotState::kEmpty},
                              {"Reader 2", SlotState::kProbing},
                              {"Reader 3", SlotState::kMute},
                              {"Reader 4", SlotState::kCard}};
  system_.presence.tokens = {{"com.apple.piv:1", "Reader 4"}, {"com.apple.setoken:aks", ""}};
  system_.Change();
  system_.LetTimePass();
  model_->Diagnose();
  Say("codesign", {.errors = "Identifier=org.kelvrin\n"});
  Say("codesign", {.status = 1, .errors = "invalid signature"});
  Say("pluginkit", {.output = "  (no matches)\n"});
  Say("system_profiler", {.end = RunEnd::kTimedOut, .output = "Readers:\n"});
  Say("security", {.status = 1, .errors = "No smartcards found.\n"});
  Say("modulecheck", {.end = RunEnd::kNoProgram});
  Say("log", {.status = 64, .output = "Must be admin to run", .errors = " 'log'\n"});
  EXPECT_EQ(
      Report(),
      "Kelvrin Token: report, 2027-01-15 08:00 UTC\n"
      "The log at its end may hold data that was signed: give this report only to those who may "
      "see that. It holds no PIN.\n"
      "\n== Versions and place\n"
      "Kelvrin Token 1.0.0\n"
      "macOS Version 14.5 (Build 23F79)\n"
      "/Applications/KelvrinToken.app\n"
      "org.kelvrin.KelvrinToken.extension\n"
      "\n== Cards and certificates\n"
      "The card in Reader 3 does not answer\n"
      "Take it out, wipe its contacts, and insert it again, the chip first and facing the "
      "reader’s contacts. If another card answers there, this one may be damaged.\n"
      "\n== Readers and tokens seen by this application\n"
      "Reader 1: no card\n"
      "Reader 2: card is being looked at\n"
      "Reader 3: a card that does not answer\n"
      "Reader 4: a card\n"
      "com.apple.piv:1: Reader 4\n"
      "com.apple.setoken:aks\n"
      "\n== Signature\n"
      "$ /usr/bin/codesign -d --verbose=2 /Applications/KelvrinToken.app\n"
      "Identifier=org.kelvrin\n"
      "\n== Signature\n"
      "$ /usr/bin/codesign --verify --deep --strict /Applications/KelvrinToken.app\n"
      "invalid signature\n"
      "(exit status 1)\n"
      "\n== Registration\n"
      "$ /usr/bin/pluginkit -m -A -D -v -p com.apple.ctk-tokens\n"
      "  (no matches)\n"
      "\n== Readers seen by macOS\n"
      "$ /usr/sbin/system_profiler SPSmartCardsDataType\n"
      "Readers:\n"
      "(took too long and was ended)\n"
      "\n== Tokens with identities\n"
      "$ /usr/bin/security list-smartcards\n"
      "No smartcards found.\n"
      "(exit status 1)\n"
      "\n== Module\n"
      "$ /Applications/KelvrinToken.app/Contents/MacOS/modulecheck --json --timeout 60 "
      "--adapter-library "
      "/Applications/KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex/Contents/Resources/"
      "libpkcs11qarn_Lindel_PCSC.dylib "
      "/Applications/KelvrinToken.app/Contents/PlugIns/KelvrinToken.appex/Contents/Resources/"
      "libpkcs11qarn_Lindel_PCSC.dylib\n"
      "(could not be run: this program is missing)\n"
      "\n== Log of the last ten minutes\n"
      "$ /usr/bin/log show --last 10m --info --style compact --predicate 'processImagePath "
      "CONTAINS \"KelvrinToken.appex\" OR subsystem == \"com.apple.CryptoTokenKit\"'\n"
      "Must be admin to run 'log'\n"
      "(exit status 64)\n");
}

TEST_F(ReportTest, InGerman) {
  model_->Diagnose();
  const std::string report = German().Report(*model_, *model_->diagnosis());
  EXPECT_TRUE(report.starts_with(
      "Kelvrin Token: Bericht, 15.01.2027 08:00 UTC\nDas Protokoll am Ende kann signierte Daten "
      "enthalten: geben Sie den "
      "Bericht nur denen, die sie sehen dürfen. Eine PIN enthält er nicht.\n\n== Versionen und "
      "Ort\n"))
      << report;
}

TEST_F(ReportTest, WhatTheApplicationLacks) {
  system_.here.extension.clear();
  system_.presence.shows_readers = false;
  system_.Change();
  model_->Diagnose();
  EXPECT_THAT(Report(), HasSubstr("KelvrinToken.app\nThe extension is missing from this "
                                  "application\n\n== Cards"));
  EXPECT_THAT(Report(), HasSubstr("seen by this application\nmacOS does not show the readers to "
                                  "this application\n"));
}

TEST_F(ReportTest, TellsSoFarWhatThereIs) {
  model_->Diagnose();
  EXPECT_THAT(Report(), Not(HasSubstr("== Signature")));
  Say("codesign", ProcessResult{});
  EXPECT_THAT(Report(), HasSubstr("\n== Signature\n$ /usr/bin/codesign"));
  EXPECT_THAT(Report(), Not(HasSubstr("== Registration")));
}

constexpr size_t kShown = size_t{64} * 1024;

TEST_F(ReportTest, OfLongOutputsTheEndIsShown) {
  const std::string line = "0123456789\n";
  std::string output = "the begin\n";
  while (output.size() < 2 * kShown) output += line;
  const std::string said = Said({.output = output + "the end\n"});
  EXPECT_TRUE(said.starts_with("...\n0123456789\n")) << said.substr(0, 40);
  EXPECT_TRUE(said.ends_with("0123456789\nthe end\n"));
  EXPECT_LE(said.size(), kShown + 4);
  EXPECT_GT(said.size(), kShown - line.size());
}

TEST_F(ReportTest, AnOutputThatJustFitsIsWhole) {
  const std::string output(kShown - 1, 'x');
  EXPECT_EQ(Said({.output = output + "\n"}), output + "\n");
  EXPECT_TRUE(Said({.output = output + "xx"}).starts_with("...\nxxx"));
}

// JSON may be one line, with or without its end.
TEST_F(ReportTest, OfOneLongLineTheEndIsShown) {
  const std::string shown(kShown, 'x');
  EXPECT_EQ(Said({.output = "begin" + shown}), "...\n" + shown + "\n");
  EXPECT_EQ(Said({.output = "begin" + shown + "\n"}), "...\n" + shown.substr(1) + "\n");
}

TEST_F(ReportTest, NoCharacterIsSplit) {
  std::string output = "x";
  while (output.size() <= kShown) output += "€";
  const std::string said = Said({.output = output + "y"});
  EXPECT_TRUE(said.starts_with("...\n€")) << said.substr(0, 20);
  EXPECT_TRUE(said.ends_with("€y\n"));
}

}  // namespace
}  // namespace kelvrin::app
