#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using kelvrin::encoding::MakeCertificate;
using kelvrin::encoding::NameFields;

TEST(SecCertificate, WhatIsNotOneCertificateInDerIsRefused) {
  const Bytes good = SomeCertificate();
  const char text[] = "-----BEGIN CERTIFICATE-----";
  Bytes longer = good;
  longer.push_back(0);
  Bytes twice = good;
  twice.insert(twice.end(), good.begin(), good.end());
  Bytes long_length = good;
  ASSERT_EQ(good[1], 0x82);  // two bytes of length follow: here as three
  long_length[1] = 0x83;
  long_length.insert(long_length.begin() + 2, 0);
  const Bytes bad[] = {
      {},         Bytes(text, text + sizeof(text)), {0x30, 0x03, 0x02, 0x01, 0x05}, longer, twice,
      long_length};
  for (const Bytes &der : bad) EXPECT_EQ(CertificateOf(der), nullptr) << der.size();
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_EQ(CertificateOf(Bytes(good.begin(), good.begin() + static_cast<long>(size))), nullptr);
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
  const std::pair<NameFields, const char *> rows[] = {
      {{}, "nil"},
      {{{"C", "DE"}}, "nil"},
      {{{"C", "DE"}, {"O", "Firm"}, {"OU", "Unit"}, {"CN", "Müller"}}, "Müller"},
      {{{"emailAddress", "a@b"}, {"O", "Firm"}, {"OU", "Unit"}}, "Unit"},
      {{{"emailAddress", "a@b"}, {"O", "Firm"}}, "Firm"},
      {{{"emailAddress", "a@b"}}, "a@b"}};
  for (const auto &[subject, summary] : rows) {
    const Bytes der = MakeCertificate({.subject_fields = subject});
    id text = (id)SecCertificateCopySubjectSummary(CertificateOf(der));
    EXPECT_EQ(TextOf([text autorelease]), summary);
  }
}

}  // namespace
