// The program as its users see it, on an extension that fills standard output with noise.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/linux/host/tool/tokenhost_fixture.h"

namespace {

using host::testing::Outcome;
using host::testing::ReadText;
using host::testing::RunOnTerminal;
using host::testing::RunProgram;
using host::testing::TokenhostTest;
using host::testing::WriteText;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST_F(TokenhostTest, WrongUsageIsNamedAndExitsWith2) {
  const std::pair<std::vector<std::string>, std::string> wrong[] = {
      {{}, "tokenhost: A command is required\n"},
      {{"frobnicate"}, "there is no command 'frobnicate'\n"},
      {{"frobnicate", "--key", "k"}, "there is no command 'frobnicate'\n"},
      {{"sign"}, "--key"},
      {{"sign", "--key", "k"}, "--algorithm"},
      {{"supports"}, "KEY"},
      {{"export"}, "KEY"},
      {{"list", "--log", "loud"}, "--log"},
      {{"list", "--unknown"}, "--unknown"},
      {{"list", "more"}, "more"}};
  for (const auto& [arguments, named] : wrong) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, AllOf(StartsWith("tokenhost: "), HasSubstr(named),
                                      EndsWith("\nRun tokenhost --help for more.\n")));
  }
  const Outcome help = Run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.output, HasSubstr("supports"));
}

TEST_F(TokenhostTest, OfAnOptionGivenTwiceTheLastCounts) {
  EXPECT_EQ(Run({"--bundle", "/nowhere.appex", "list"}).errors,
            "tokenhost: there is no bundle folder /nowhere.appex\n");
  const Outcome outcome =
      RunProgram({KELVRIN_TOKENHOST, "--bundle", "/nowhere.appex", "--bundle", bundle.path(),
                  "--pin-file", "/nowhere", "--log", "default", "--log", "off", "sign", "--key",
                  "02AB", "--algorithm", "RSASignatureRaw", "--pin-file", pin_file},
                 "abc");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, Not(HasSubstr("log ")));
}

TEST_F(TokenhostTest, EveryProblemOfABundleIsNamedBeforeAnythingIsLoaded) {
  bundle.EditInfo("XPC!", "APPL");
  bundle.Remove("Resources/config.plist");
  bundle.Remove("Resources/libpkcs11qarn_Lindel_PCSC.dylib");
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              AllOf(HasSubstr("CFBundlePackageType"), HasSubstr("warning: the bundle has no"),
                    HasSubstr("libpkcs11qarn_Lindel_PCSC.dylib is missing")));
  EXPECT_THAT(outcome.errors, Not(HasSubstr("noise")));
}

TEST_F(TokenhostTest, WhatStandsInTheWayOfAnOperationIsNamedBeforeAnythingIsLoaded) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  WriteText(folder / "long", std::string(2000, '1'));
  WriteText(folder / "lines", "1234\n5678\n");
  const std::vector<std::string> obstacles[] = {
      {"--in", folder / "missing"},       {"--in", folder.path()},
      {"--out", folder / "missing/out"},  {"--out", folder.path()},
      {"--pin-file", folder / "missing"}, {"--pin-file", folder.path()},
      {"--pin-file", folder / "pipe"},    {"--pin-file", "/dev/zero"},
      {"--pin-file", folder / "long"},    {"--pin-file", folder / "lines"}};
  for (const auto& obstacle : obstacles) {
    const Outcome outcome = Sign(obstacle);
    EXPECT_EQ(outcome.status, 1) << obstacle[1];
    EXPECT_THAT(outcome.errors, AllOf(StartsWith("tokenhost: "), HasSubstr(obstacle[1])));
    EXPECT_EQ(std::ranges::count(outcome.errors, '\n'), 1);
    EXPECT_EQ(outcome.output, "");
  }
  const Outcome outcome = Run({"sign", "--key", "02AB", "--algorithm", "RSASignatureCooked"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "tokenhost: there is no key algorithm 'RSASignatureCooked'\n");
}

TEST_F(TokenhostTest, AnUnknownKeyIsNamedAndNothingIsWritten) {
  const std::string target = folder / "results/out";
  for (std::vector<std::string> arguments :
       {std::vector<std::string>{"sign", "--key", "0299", "--algorithm", "RSASignatureRaw"},
        std::vector<std::string>{"export", "0299"}}) {
    arguments.insert(arguments.end(), {"--out", target});
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("tokenhost: no key has the object ID or label '0299'\n"));
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(Results().empty());
  }
}

TEST_F(TokenhostTest, WhatCannotBeDoneIsNamedAndNothingIsWritten) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"export", "02AB"}, "no certificate on the card belongs to the key 02AB\n"},
      {{"exchange", "--key", "02AB", "--algorithm", "ECDHKeyExchangeStandardX963SHA1"},
       "the algorithm kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1 is not supported by the key "
       "(NSOSStatusErrorDomain, code -50)\n"},
      {{"sign", "--key", "02AB", "--algorithm", "RSASignatureRaw"},  // without a PIN file
       "without a terminal: use --pin-file\n"}};
  for (const auto& [arguments, text] : rows) {
    const Outcome outcome = Run(arguments, "abc");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr(text));
  }
}

TEST_F(TokenhostTest, AWrongPinIsRefusedWithTheTokensErrorAndItsLogAndNeverShown) {
  WriteText(pin_file, "987654321");
  const std::string target = folder / "results/signature";
  const Outcome outcome = Sign({"--out", target, "--log", "default", "--show-private"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              EndsWith("tokenhost: Das ist die falsche PIN für die Karte. (CryptoTokenKit, code -5)"
                       "; the extension's last error line: C_Login: 0xa0\n"));
  EXPECT_THAT(outcome.errors, Not(HasSubstr("987654321")));
  EXPECT_TRUE(Results().empty());
}

TEST_F(TokenhostTest, AStandardOutputThatCannotBeWrittenIsAFailure) {
  for (const char* redirection : {">/dev/full", ">&-"}) {
    const Outcome outcome = RunProgram({"/bin/sh", "-c",
                                        std::string("exec ") + KELVRIN_TOKENHOST + " --bundle " +
                                            bundle.path() + " list " + redirection});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("tokenhost: standard output cannot be written"));
  }
}

TEST_F(TokenhostTest, StandardOutputHasTheSignatureAloneWhateverTheExtensionPrints) {
  WriteText(pin_file, "1234\r\n");
  const Outcome outcome = Sign();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, AllOf(HasSubstr("noise: loaded"), HasSubstr("noise: sign"),
                                    Not(HasSubstr("warning"))));
}

TEST_F(TokenhostTest, FilesAreReadAndReplacedWhole) {
  const std::string target = folder / "results/signature";
  WriteText(target, "something longer that was there before");
  chmod(target.c_str(), 0640);
  const Outcome outcome = Sign({"--in", input, "--out", target}, "");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(ReadText(target), "cba");
  struct stat status = {};
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
  EXPECT_EQ(Results(), std::vector<std::string>{"signature"});
}

TEST_F(TokenhostTest, AnOutputThatIsADeviceOrALinkStaysWhatItIs) {
  EXPECT_EQ(Sign({"--out", "/dev/null"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  WriteText(folder / "target", "");
  std::filesystem::create_symlink(folder / "target", folder / "link");
  EXPECT_EQ(Sign({"--out", folder / "link"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(ReadText(folder / "target"), "cba");
}

TEST_F(TokenhostTest, ThePinIsTypedUnseen) {
  const std::string target = folder / "signature";
  const Outcome outcome = RunOnTerminal(
      {KELVRIN_TOKENHOST, "--bundle", bundle.path(), "sign", "--key", "02AB", "--algorithm",
       "kSecKeyAlgorithmRSASignatureRaw", "--in", input, "--out", target},
      "PIN: ", "1234\n");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, Not(HasSubstr("1234")));
  EXPECT_EQ(ReadText(target), "cba");
}

TEST_F(TokenhostTest, ASignatureThatMacOsWouldRefuseIsWrittenWithAWarning) {
  const Outcome outcome = Run(
      {"--pin-file", pin_file, "sign", "--key", "02AB", "--algorithm", "ECDSASignatureDigestX962"},
      "abc");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, HasSubstr("warning: macOS would not accept this signature"));
}

}  // namespace
