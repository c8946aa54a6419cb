#include "tests/card/softhsm_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <set>
#include <stdexcept>

namespace kelvrin {
namespace {

namespace fs = std::filesystem;

TEST(SoftHsmCardTest, ThrowsTheMakersWordsWhichNeverHaveThePin) {
  const std::pair<CardOptions, const char*> rows[] = {
      {{.label = std::string(33, 'x')}, "--label takes 1 to 32 bytes"},
      {{.pin = "987"}, "the PIN has fewer than 4 characters"}};
  for (const auto& [options, words] : rows) {
    try {
      SoftHsmCard card(options);
      ADD_FAILURE() << "no exception: " << words;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(words));
      EXPECT_THAT(error.what(), testing::Not(testing::HasSubstr("987")));
    }
  }
}

TEST(SoftHsmCardTest, RefusesASecondCardOfTheSameLabelAndAMissingFile) {
  SoftHsmCard card({.empty = true});
  EXPECT_THROW(card.Add({.name = "other", .empty = true}), std::runtime_error);
  EXPECT_THROW(card.Read("rsa.der"), std::runtime_error);
}

TEST(SoftHsmCardTest, PublishesCertificatesKeysAndAPrivatePinFile) {
  SoftHsmCard card;
  EXPECT_EQ(card.Read("rsa.der").at(0), 0x30);
  EXPECT_EQ(card.Read("ec.der").at(0), 0x30);
  EXPECT_TRUE(fs::exists(card.File("rsa.pub.pem")));
  EXPECT_TRUE(fs::exists(card.File("ec.pub.pem")));
  struct stat status = {};
  ASSERT_EQ(stat(card.File("pin").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_STREQ(std::getenv("SOFTHSM2_CONF"), card.configuration().c_str());
}

TEST(SoftHsmCardTest, LeavesNeitherFolderNorEnvironmentBehind) {
  fs::path directory;
  {
    SoftHsmCard card({.empty = true});
    directory = card.directory();
    EXPECT_TRUE(fs::exists(directory));
  }
  EXPECT_FALSE(fs::exists(directory));
  EXPECT_EQ(std::getenv("SOFTHSM2_CONF"), nullptr);
}

TEST(SoftHsmCardTest, CarriesExtraAndLoneCertificatesAndASecondCard) {
  SoftHsmCard card({.extra_certificates = 2, .lone_certificate = true});
  card.Add({.name = "other", .label = "0815", .pin = "654321", .empty = true});
  const std::set<std::vector<std::uint8_t>> certificates = {
      card.Read("rsa.der"), card.Read("ec.der"), card.Read("extra-01.der"),
      card.Read("extra-02.der"), card.Read("lone.der")};
  EXPECT_EQ(certificates.size(), 5u);
  EXPECT_TRUE(fs::exists(card.File("other", "pin")));
  EXPECT_FALSE(fs::exists(card.File("other", "rsa.der")));
}

}  // namespace
}  // namespace kelvrin
