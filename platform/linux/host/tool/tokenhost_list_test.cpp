// What tokenhost shows of cards, of set-ups that fail and of the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/linux/host/tool/tokenhost_fixture.h"

namespace {

using host::testing::Outcome;
using host::testing::run_program;
using host::testing::TestBundle;
using host::testing::TokenhostTest;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

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
    EXPECT_THAT(outcome.errors,
                EndsWith("\ntokenhost: the set-up of the card with " + bare.path() +
                         " failed: no reader, <private>; --show-private shows what is private "
                         "(CryptoTokenKit, code -2)\n"));
  }
}

TEST_F(TokenhostTest, AFailedSetUpEndsWithThePrivatePartsThatAreAskedFor) {
  const TestBundle bare(KELVRIN_NOISY_EXTENSION, "BareDriver");
  EXPECT_THAT(
      run_program({KELVRIN_TOKENHOST, "--bundle", bare.path(), "--show-private", "list"}).errors,
      EndsWith("failed: no reader, private part (CryptoTokenKit, code -2)\n"));
}

TEST_F(TokenhostTest, WhatTheExtensionPrintsComesBeforeTheEnd) {
  const TestBundle bare(KELVRIN_NOISY_EXTENSION, "BareDriver");
  const std::string errors =
      run_program({KELVRIN_TOKENHOST, "--bundle", bare.path(), "list"}).errors;
  EXPECT_THAT(errors, HasSubstr("noise that is not flushed\n"));
  EXPECT_LT(errors.find("noise that is not flushed\n"), errors.find("tokenhost: the set-up"));
}

TEST_F(TokenhostTest, AFailedSetUpEndsWithTheDriversOwnError) {
  const TestBundle failing(KELVRIN_NOISY_EXTENSION, "FailingDriver");
  const Outcome outcome = run_program({KELVRIN_TOKENHOST, "--bundle", failing.path(), "list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              AllOf(HasSubstr("log error: a detail\n"),
                    EndsWith("\ntokenhost: the set-up of the card with " + failing.path() +
                             " failed: the card is broken (CryptoTokenKit, code -3)\n")));
}

TEST_F(TokenhostTest, ASetUpThatFailsWithoutAWordIsNamedToo) {
  const TestBundle silent(KELVRIN_NOISY_EXTENSION, "SilentDriver");
  EXPECT_THAT(run_program({KELVRIN_TOKENHOST, "--bundle", silent.path(), "list"}).errors,
              EndsWith("tokenhost: the set-up of the card with " + silent.path() +
                       " failed: the driver returned a token that it never set up "
                       "(CryptoTokenKit, code -2)\n"));
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
