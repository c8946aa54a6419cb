// The program as its users see it, on an extension that fills standard output with noise.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/linux/host/testing/program.h"
#include "platform/linux/host/testing/test_bundle.h"

namespace {

using host::testing::Outcome;
using host::testing::read_text;
using host::testing::run_on_terminal;
using host::testing::run_program;
using host::testing::TemporaryFolder;
using host::testing::TestBundle;
using host::testing::write_text;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class TokenhostTest : public testing::Test {
 protected:
  TokenhostTest() {
    write_text(pin_file, "1234\n");
    write_text(input, "abc");
  }

  Outcome run(std::vector<std::string> arguments, const std::string& standard_input = "") {
    arguments.insert(arguments.begin(), {KELVRIN_TOKENHOST, "--bundle", bundle.path()});
    return run_program(arguments, standard_input);
  }
  // Signs the data, or what standard input has, by default to standard output.
  Outcome sign(std::vector<std::string> more = {}, const std::string& standard_input = "abc") {
    std::vector<std::string> arguments = {"--pin-file", pin_file,      "sign",           "--key",
                                          "02ab",       "--algorithm", "RSASignatureRaw"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments, standard_input);
  }
  // The entries of the folder of results.
  std::vector<std::string> results() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "results")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  const TestBundle bundle{KELVRIN_NOISY_EXTENSION, "NoisyDriver"};
  const TemporaryFolder folder;
  const std::string pin_file = folder / "pin";
  const std::string input = folder / "input";
};

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
    EXPECT_NE(outcome.errors, "");
  }
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
      {"--in", folder / "missing"},           {"--in", folder.path()},
      {"--out", folder / "missing" + "/out"}, {"--out", folder.path()},
      {"--pin-file", folder / "missing"},     {"--pin-file", folder.path()}};
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
  EXPECT_THAT(outcome.errors, HasSubstr("algid:keyexchange:ECDH:KDFX963:SHA1 is not supported by "
                                        "the key (NSOSStatusErrorDomain, code -50)"));
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

TEST_F(TokenhostTest, AFailedSetUpShowsItsErrorLinesWhateverTheLogIs) {
  const TestBundle bare(KELVRIN_NOISY_EXTENSION, "BareDriver");
  for (const char* log : {"off", "error", "default"}) {
    const Outcome outcome =
        run_program({KELVRIN_TOKENHOST, "--bundle", bare.path(), "--log", log, "list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    const std::string line = "log error: no reader, <private>\n";
    const size_t position = outcome.errors.find(line);
    ASSERT_NE(position, std::string::npos) << log;
    EXPECT_EQ(outcome.errors.find(line, position + 1), std::string::npos) << log;
    EXPECT_THAT(outcome.errors, HasSubstr("the set-up of the card failed"));
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

TEST_F(TokenhostTest, TheListIsForPeople) {
  const Outcome outcome = run({"list"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "token '" + bundle.path() +
                                "', 1 item\n"
                                "key 02AB  Schlüssel?[31m\n"
                                "    RSA, 2048 bits; can: sign\n"
                                "    allowed: sign PIN\n");
}

TEST_F(TokenhostTest, TheListIsForPrograms) {
  const Outcome outcome = run({"list", "--json"});
  EXPECT_EQ(outcome.status, 0);
  const auto json = nlohmann::json::parse(outcome.output, nullptr, false);
  const auto expected = nlohmann::json::parse(R"({
    "duplicateObjectIDs": [],
    "items": [{"kind": "key", "objectID": "02AB", "label": "Schlüssel\u001b[31m",
               "keyType": "RSA", "keySizeInBits": 2048, "capabilities": ["sign"],
               "constraints": {"sign": "PIN"}}]})");
  EXPECT_EQ(json.value("items", nlohmann::json()), expected["items"]);
  EXPECT_EQ(json.value("duplicateObjectIDs", nlohmann::json()), expected["duplicateObjectIDs"]);
  EXPECT_EQ(json.value("instanceID", ""), bundle.path());
}

TEST_F(TokenhostTest, DuplicateObjectIdsAreWarnedOfAndListed) {
  const TestBundle twice(KELVRIN_NOISY_EXTENSION, "DuplicateDriver");
  const Outcome outcome =
      run_program({KELVRIN_TOKENHOST, "--bundle", twice.path(), "list", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("warning: several items have the object ID 02AB"));
  EXPECT_THAT(outcome.output, HasSubstr("\"duplicateObjectIDs\": [\n    \"02AB\"\n  ]"));
}

TEST_F(TokenhostTest, TheTableTellsWhatIsDirectAndWhatIsResolved) {
  const Outcome outcome = run({"supports", "02AB"});
  EXPECT_EQ(outcome.status, 0);
  const auto row = [&outcome](const std::string& name) {
    const size_t begin = outcome.output.find("\n" + name + " ") + 1;
    std::string line = outcome.output.substr(begin, outcome.output.find('\n', begin) - begin);
    line.erase(
        std::unique(line.begin(), line.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
        line.end());
    return line;
  };
  EXPECT_EQ(std::ranges::count(outcome.output, '\n'), 77);
  EXPECT_EQ(row("RSASignatureRaw"), "RSASignatureRaw direct - -");
  EXPECT_EQ(row("RSASignatureMessagePSSSHA512"), "RSASignatureMessagePSSSHA512 resolved - -");
  EXPECT_EQ(row("RSAEncryptionPKCS1"), "RSAEncryptionPKCS1 - - -");
}

TEST_F(TokenhostTest, TheLogShowsWhatIsAskedForAndHidesWhatIsPrivate) {
  EXPECT_THAT(run({"list"}).errors, Not(HasSubstr("log ")));
  EXPECT_THAT(
      run({"--log", "error", "list"}).errors,
      AllOf(HasSubstr("log error: an error line, <private>\n"), Not(HasSubstr("log default: "))));
  EXPECT_THAT(run({"--log", "default", "list"}).errors,
              AllOf(HasSubstr("log error: an error line, <private>\n"),
                    HasSubstr("log default: a line, <private>\n")));
  EXPECT_THAT(run({"list", "--log", "default", "--show-private"}).errors,
              HasSubstr("log default: a line, private part\n"));
}

}  // namespace
