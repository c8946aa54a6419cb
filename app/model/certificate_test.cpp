#include "app/model/certificate.h"

#include <gtest/gtest.h>

namespace kelvrin::app {
namespace {

constexpr Time kOneDay = 24 * 60 * 60;
constexpr Time kBegin = 1'700'000'000;
constexpr Time kEnd = kBegin + 365 * kOneDay;

Certificate OfAYear() {
  Certificate certificate;
  certificate.not_before = kBegin;
  certificate.not_after = kEnd;
  return certificate;
}

struct Moment {
  Time now;
  Validity validity;
};

TEST(CertificateValidityTest, Borders) {
  const Moment moments[] = {
      {kBegin - 1, Validity::kNotYet},         {kBegin, Validity::kValid},
      {kEnd - 30 * kOneDay, Validity::kValid}, {kEnd - 30 * kOneDay + 1, Validity::kExpiresSoon},
      {kEnd, Validity::kExpiresSoon},          {kEnd + 1, Validity::kExpired},
  };
  for (const Moment& moment : moments) {
    EXPECT_EQ(ValidityAt(OfAYear(), moment.now), moment.validity) << moment.now;
  }
}

TEST(CertificateValidityTest, IsUnknownWhereTheDatesCouldNotBeRead) {
  EXPECT_EQ(ValidityAt(Certificate(), kBegin), Validity::kUnknown);
}

TEST(CertificateValidityTest, OnlyKeysOfCertificatesThatAreNotOutOfDateAreUsable) {
  Certificate certificate = OfAYear();
  EXPECT_FALSE(IsUsable(certificate, kBegin));
  certificate.has_key = true;
  EXPECT_TRUE(IsUsable(certificate, kBegin));
  EXPECT_TRUE(IsUsable(certificate, kEnd));
  EXPECT_FALSE(IsUsable(certificate, kBegin - 1));
  EXPECT_FALSE(IsUsable(certificate, kEnd + 1));
  certificate.not_before = certificate.not_after = 0;
  EXPECT_TRUE(IsUsable(certificate, kBegin));
}

TEST(CertificateValidityTest, DaysLeftAreWholeOnes) {
  EXPECT_EQ(DaysLeft(OfAYear(), kBegin), 365);
  EXPECT_EQ(DaysLeft(OfAYear(), kEnd - 2 * kOneDay), 2);
  EXPECT_EQ(DaysLeft(OfAYear(), kEnd - 2 * kOneDay + 1), 1);
  EXPECT_EQ(DaysLeft(OfAYear(), kEnd - kOneDay + 1), 0);
  EXPECT_EQ(DaysLeft(OfAYear(), kEnd), 0);
}

TEST(CertificateValidityTest, TheSameCertificateOnAnotherCardIsAnother) {
  Certificate certificate = OfAYear();
  certificate.token_id = "class:1";
  certificate.fingerprint = {1, 2};
  Certificate other = certificate;
  other.has_key = true;
  EXPECT_TRUE(IsSame(certificate, other));
  other.token_id = "class:2";
  EXPECT_FALSE(IsSame(certificate, other));
  other.token_id = "class:1";
  other.fingerprint = {1, 3};
  EXPECT_FALSE(IsSame(certificate, other));
}

}  // namespace
}  // namespace kelvrin::app
