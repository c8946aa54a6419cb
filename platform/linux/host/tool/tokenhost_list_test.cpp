// What tokenhost shows of cards, of set-ups that fail and of the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/linux/host/tool/tokenhost_fixture.h"

namespace {

using host::testing::Outcome;
using host::testing::TestBundle;
using host::testing::TokenhostTest;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST_F(TokenhostTest, AFailedSetUpShowsItsErrorLinesWhateverTheLogIs) {
  const TestBundle bare(KELVRIN_NOISY_EXTENSION, "BareDriver");
  for (const char* log : {"off", "error", "default"}) {
    const Outcome outcome = RunOn(bare, {"--log", log, "list"});
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
    // What the extension prints comes before the end.
    EXPECT_LT(outcome.errors.find("noise that is not flushed\n"),
              outcome.errors.find("tokenhost: the set-up"));
  }
  EXPECT_THAT(RunOn(bare, {"--show-private", "list"}).errors,
              EndsWith("failed: no reader, private part (CryptoTokenKit, code -2)\n"));
}

TEST_F(TokenhostTest, AFailedSetUpEndsWithTheDriversOwnErrorOrIsNamedWithoutOne) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"FailingDriver", "log error: a detail\n", "the card is broken (CryptoTokenKit, code -3)"},
      {"SilentDriver", "",
       "the driver returned a token that it never set up (CryptoTokenKit, code -2)"}};
  for (const auto& [driver, logged, cause] : rows) {
    const TestBundle failing(KELVRIN_NOISY_EXTENSION, driver);
    const Outcome outcome = RunOn(failing, {"list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors,
                AllOf(HasSubstr(logged), EndsWith("tokenhost: the set-up of the card with " +
                                                  failing.path() + " failed: " + cause + "\n")));
  }
}

TEST_F(TokenhostTest, TheListIsForPeople) {
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "token '" + bundle.path() +
                                "', 1 item\n"
                                "key 02AB  Schlüssel?[31m\n"
                                "    RSA, 2048 bits; can: sign\n"
                                "    allowed: sign PIN\n");
}

TEST_F(TokenhostTest, TheListIsForPrograms) {
  const Outcome outcome = Run({"list", "--json"});
  EXPECT_EQ(outcome.status, 0);
  auto expected = nlohmann::json::parse(R"({
    "duplicateObjectIDs": [],
    "items": [{"kind": "key", "objectID": "02AB", "label": "Schlüssel\u001b[31m",
               "keyType": "RSA", "keySizeInBits": 2048, "capabilities": ["sign"],
               "constraints": {"sign": "PIN"}}]})");
  expected["instanceID"] = bundle.path();
  EXPECT_EQ(nlohmann::json::parse(outcome.output, nullptr, false), expected);
}

TEST_F(TokenhostTest, DuplicateObjectIdsAreWarnedOfAndListed) {
  const TestBundle twice(KELVRIN_NOISY_EXTENSION, "DuplicateDriver");
  const Outcome outcome = RunOn(twice, {"list", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("warning: several items have the object ID 02AB"));
  EXPECT_THAT(outcome.output, HasSubstr("\"duplicateObjectIDs\": [\n    \"02AB\"\n  ]"));
}

TEST_F(TokenhostTest, TheTableTellsWhatIsDirectAndWhatIsResolvedAndPairsNothingElse) {
  const Outcome outcome = Run({"supports", "02AB"});
  EXPECT_EQ(outcome.status, 0);
  std::string table = outcome.output;
  table.erase(
      std::unique(table.begin(), table.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
      table.end());
  EXPECT_EQ(std::ranges::count(table, '\n'), 77);
  for (const char* row :
       {"algorithm operation answer", "RSASignatureRaw sign direct",
        "RSASignatureMessagePSSSHA512 sign resolved", "RSAEncryptionPKCS1 decrypt -",
        "RSAEncryptionRaw decrypt -", "ECDHKeyExchangeStandard exchange -"}) {
    EXPECT_THAT("\n" + table, HasSubstr("\n" + std::string(row) + "\n"));
  }
  // The extension would say yes to a signature with whatever it is asked about.
  EXPECT_THAT(outcome.errors, Not(HasSubstr("noise: asked to sign with algid:encrypt")));
}

TEST_F(TokenhostTest, TheLogShowsWhatIsAskedForAndHidesWhatIsPrivate) {
  EXPECT_THAT(Run({"list"}).errors, Not(HasSubstr("log ")));
  EXPECT_THAT(
      Run({"--log", "error", "list"}).errors,
      AllOf(HasSubstr("log error: an error line, <private>\n"), Not(HasSubstr("log default: "))));
  EXPECT_THAT(Run({"--log", "default", "list"}).errors,
              AllOf(HasSubstr("log error: an error line, <private>\n"),
                    HasSubstr("log default: a line, <private>\n")));
  EXPECT_THAT(Run({"list", "--log", "default", "--show-private"}).errors,
              HasSubstr("log default: a line, private part\n"));
}

}  // namespace
