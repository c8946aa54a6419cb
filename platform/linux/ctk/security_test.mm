#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#include <vector>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using test_certificates::KeyKind;
using Der = std::vector<uint8_t>;

const Der &SomeCertificate() {
  static const Der der = test_certificates::Make(KeyKind::kP256, {{"CN", "Test"}}).der;
  return der;
}

TEST(SecCertificate, WhatIsNotOneCertificateInDerIsRefused) {
  const Der good = SomeCertificate();
  const char text[] = "-----BEGIN CERTIFICATE-----";
  Der longer = good;
  longer.push_back(0);
  Der twice = good;
  twice.insert(twice.end(), good.begin(), good.end());
  Der long_length = good;
  ASSERT_EQ(good[1], 0x82);  // two bytes of length follow: here as three
  long_length[1] = 0x83;
  long_length.insert(long_length.begin() + 2, 0);
  const Der bad[] = {
      {},         Der(text, text + sizeof(text)), {0x30, 0x03, 0x02, 0x01, 0x05}, longer, twice,
      long_length};
  for (const Der &der : bad) EXPECT_EQ(CertificateOf(der), nullptr) << der.size();
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_EQ(CertificateOf(Der(good.begin(), good.begin() + static_cast<long>(size))), nullptr);
  }
}

TEST(SecCertificate, KeepsItsOwnCopyOfTheBytesAndGivesThemBack) {
  NSMutableData *data = [NSMutableData dataWithData:DataOf(SomeCertificate())];
  SecCertificateRef certificate =
      SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)data);
  ASSERT_NE(certificate, nullptr);
  [data setLength:0];
  NSData *copy = (NSData *)SecCertificateCopyData(certificate);
  EXPECT_TRUE([copy isEqual:DataOf(SomeCertificate())]);
  CFRelease(copy);
  CFRelease(certificate);
}

TEST(SecCertificate, CallerOwnsWhatItCreatesAndCopies) {
  NSData *bytes = DataOf(SomeCertificate());
  SecCertificateRef certificate = SecCertificateCreateWithData(nullptr, (CFDataRef)bytes);
  EXPECT_EQ([(id)certificate retainCount], 1U);
  EXPECT_EQ(CFRetain(certificate), certificate);
  EXPECT_EQ([(id)certificate retainCount], 2U);
  CFRelease(certificate);
  CFRelease(certificate);
}

TEST(SecCertificate, SubjectSummaryIsTheCommonNameOrItsNearestSubstitute) {
  const struct {
    test_certificates::Subject subject;
    const char *summary;
  } rows[] = {{{}, "nil"},
              {{{"C", "DE"}}, "nil"},
              {{{"C", "DE"}, {"O", "Firm"}, {"OU", "Unit"}, {"CN", "Müller"}}, "Müller"},
              {{{"emailAddress", "a@b"}, {"O", "Firm"}, {"OU", "Unit"}}, "Unit"},
              {{{"emailAddress", "a@b"}, {"O", "Firm"}}, "Firm"},
              {{{"emailAddress", "a@b"}}, "a@b"}};
  for (const auto &row : rows) {
    const Der der = test_certificates::Make(KeyKind::kP256, row.subject).der;
    EXPECT_EQ(TextOf(TKCertificateSubjectSummary(CertificateOf(der))), row.summary);
  }
}

}  // namespace
