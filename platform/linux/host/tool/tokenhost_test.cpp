// The program as its users see it, on an extension that fills standard output with noise.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/linux/host/tool/tokenhost_fixture.h"

namespace {

using host::testing::Outcome;
using host::testing::read_text;
using host::testing::run_on_terminal;
using host::testing::run_program;
using host::testing::TokenhostTest;
using host::testing::write_text;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST_F(TokenhostTest, WrongUsageExitsWith2) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"frobnicate"},
      {"sign"},
      {"sign", "--key", "k"},
      {"supports"},
      {"list", "--log", "loud"},
      {"list", "--unknown"},
      {"exchange", "--key", "k", "--algorithm", "a", "--size", "0"}};
  for (const auto& arguments : wrong) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith("tokenhost: "));
  }
}

TEST_F(TokenhostTest, WhatIsWrongWithTheUsageIsNamed) {
  const std::string help = "\nRun tokenhost --help for more.\n";
  EXPECT_EQ(run({"frobnicate"}).errors, "tokenhost: there is no command 'frobnicate'" + help);
  EXPECT_EQ(run({"frobnicate", "--key", "k"}).errors,
            "tokenhost: there is no command 'frobnicate'" + help);
  EXPECT_EQ(run({}).errors, "tokenhost: A command is required" + help);
  EXPECT_THAT(run({"list", "--unknown"}).errors, HasSubstr("--unknown"));
  EXPECT_THAT(run({"list", "more"}).errors, HasSubstr("more"));
  EXPECT_THAT(run({"sign", "--key", "k"}).errors, HasSubstr("--algorithm"));
}

TEST_F(TokenhostTest, OfAnOptionGivenTwiceTheLastCounts) {
  EXPECT_EQ(run({"--bundle", "/nowhere.appex", "list"}).errors,
            "tokenhost: there is no bundle folder /nowhere.appex\n");
  const Outcome outcome =
      run_program({KELVRIN_TOKENHOST, "--bundle", "/nowhere.appex", "--bundle", bundle.path(),
                   "--pin-file", "/nowhere", "--log", "default", "--log", "off", "sign", "--key",
                   "02AB", "--algorithm", "RSASignatureRaw", "--pin-file", pin_file},
                  "abc");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, Not(HasSubstr("log ")));
}

TEST_F(TokenhostTest, HelpIsNoFailure) {
  const Outcome outcome = run({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("supports"));
}

TEST_F(TokenhostTest, ABundleThatIsNotThereIsNamed) {
  const Outcome outcome = run_program({KELVRIN_TOKENHOST, "--bundle", "/nowhere.appex", "list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "tokenhost: there is no bundle folder /nowhere.appex\n");
}

TEST_F(TokenhostTest, EveryProblemOfABundleIsNamedBeforeAnythingIsLoaded) {
  bundle.edit_info("XPC!", "APPL");
  bundle.remove("Resources/config.plist");
  bundle.remove("Resources/libpkcs11qarn_Lindel_PCSC.dylib");
  const Outcome outcome = run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              AllOf(HasSubstr("CFBundlePackageType"), HasSubstr("warning: the bundle has no"),
                    HasSubstr("libpkcs11qarn_Lindel_PCSC.dylib is missing")));
  EXPECT_THAT(outcome.errors, Not(HasSubstr("noise")));
}

TEST_F(TokenhostTest, WhatStandsInTheWayOfAnOperationIsNamedBeforeAnythingIsLoaded) {
  const std::vector<std::vector<std::string>> obstacles = {
      {"--in", folder / "missing"},       {"--in", folder.path()},
      {"--out", folder / "missing/out"},  {"--out", folder.path()},
      {"--pin-file", folder / "missing"}, {"--pin-file", folder.path()}};
  for (const auto& obstacle : obstacles) {
    std::vector<std::string> arguments = {"sign", "--key", "02ab", "--algorithm",
                                          "RSASignatureRaw"};
    arguments.insert(arguments.end(), obstacle.begin(), obstacle.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1) << obstacle[0];
    EXPECT_THAT(outcome.errors, AllOf(StartsWith("tokenhost: "), HasSubstr(obstacle[1])));
    EXPECT_EQ(std::ranges::count(outcome.errors, '\n'), 1);
    EXPECT_EQ(outcome.output, "");
  }
}

TEST_F(TokenhostTest, AnUnknownAlgorithmIsNamed) {
  const Outcome outcome = run({"sign", "--key", "02AB", "--algorithm", "RSASignatureCooked"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "tokenhost: there is no key algorithm 'RSASignatureCooked'\n");
}

TEST_F(TokenhostTest, AnUnknownKeyIsNamedAndNothingIsWritten) {
  std::filesystem::create_directory(folder / "results");
  const Outcome outcome = run({"sign", "--key", "0299", "--algorithm", "RSASignatureRaw", "--out",
                               folder / "results/signature"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("tokenhost: no key has the object ID or label '0299'\n"));
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(results().empty());
}

TEST_F(TokenhostTest, ARefusedAlgorithmIsAFailureOfThePlatform) {
  const Outcome outcome =
      run({"exchange", "--key", "02AB", "--algorithm", "ECDHKeyExchangeStandardX963SHA1"}, "peer");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              HasSubstr("the algorithm kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1 is "
                        "not supported by the key (NSOSStatusErrorDomain, code -50)"));
}

TEST_F(TokenhostTest, SharedInfoThatIsNoHexIsNamed) {
  for (const char* hex : {"0", "xy", "00 0", "0x12"}) {
    const Outcome outcome = run({"exchange", "--key", "02AB", "--algorithm",
                                 "ECDHKeyExchangeStandardX963SHA1", "--shared-info", hex});
    EXPECT_EQ(outcome.status, 1) << hex;
    EXPECT_THAT(outcome.errors, HasSubstr("'" + std::string(hex) + "' is no hex"));
  }
}

TEST_F(TokenhostTest, WithoutPinFileAndTerminalThePinCannotBeAskedFor) {
  const Outcome outcome = run({"sign", "--key", "02AB", "--algorithm", "RSASignatureRaw"}, "abc");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, HasSubstr("without a terminal: use --pin-file\n"));
}

TEST_F(TokenhostTest, AWrongPinIsRefusedWithTheTokensErrorAndNeverShown) {
  std::filesystem::create_directory(folder / "results");
  write_text(pin_file, "987654321");
  const Outcome outcome =
      sign({"--out", folder / "results/signature", "--log", "default", "--show-private"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              HasSubstr("Das ist die falsche PIN für die Karte. (CryptoTokenKit, code -5)"));
  EXPECT_THAT(outcome.errors, Not(HasSubstr("987654321")));
  EXPECT_TRUE(results().empty());
}

TEST_F(TokenhostTest, APinFileTooLongForAPinIsRefused) {
  write_text(pin_file, std::string(2000, '1'));
  const Outcome outcome = sign();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("too long"));
}

TEST_F(TokenhostTest, AStandardOutputThatCannotBeWrittenIsAFailure) {
  for (const char* redirection : {">/dev/full", ">&-"}) {
    const Outcome outcome = run_program({"/bin/sh", "-c",
                                         std::string("exec ") + KELVRIN_TOKENHOST + " --bundle " +
                                             bundle.path() + " list " + redirection});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("tokenhost: standard output cannot be written"));
  }
}

TEST_F(TokenhostTest, StandardOutputHasTheSignatureAloneWhateverTheExtensionPrints) {
  const Outcome outcome = sign();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, AllOf(HasSubstr("noise: loaded"), HasSubstr("noise: sign")));
}

TEST_F(TokenhostTest, FilesAreReadAndReplacedWhole) {
  std::filesystem::create_directory(folder / "results");
  const std::string target = folder / "results/signature";
  write_text(target, "something longer that was there before");
  chmod(target.c_str(), 0640);
  const Outcome outcome = sign({"--in", input, "--out", target}, "");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(read_text(target), "cba");
  struct stat status = {};
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
  EXPECT_EQ(results(), std::vector<std::string>{"signature"});
}

TEST_F(TokenhostTest, AnOutputThatIsADeviceOrALinkStaysWhatItIs) {
  EXPECT_EQ(sign({"--out", "/dev/null"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  write_text(folder / "target", "");
  std::filesystem::create_symlink(folder / "target", folder / "link");
  EXPECT_EQ(sign({"--out", folder / "link"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(read_text(folder / "target"), "cba");
}

TEST_F(TokenhostTest, ThePinIsTypedUnseen) {
  const std::string target = folder / "signature";
  const Outcome outcome = run_on_terminal(
      {KELVRIN_TOKENHOST, "--bundle", bundle.path(), "sign", "--key", "02AB", "--algorithm",
       "kSecKeyAlgorithmRSASignatureRaw", "--in", input, "--out", target},
      "PIN: ", "1234\n");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, Not(HasSubstr("1234")));
  EXPECT_EQ(read_text(target), "cba");
}

TEST_F(TokenhostTest, ASignatureThatMacOsWouldRefuseIsWrittenWithAWarning) {
  const Outcome outcome = run(
      {"--pin-file", pin_file, "sign", "--key", "02AB", "--algorithm", "ECDSASignatureDigestX962"},
      "abc");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "cba");
  EXPECT_THAT(outcome.errors, HasSubstr("warning: macOS would not accept this signature"));
  EXPECT_THAT(sign().errors, Not(HasSubstr("warning")));
}

}  // namespace
