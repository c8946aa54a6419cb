#include <CommonCrypto/CommonDigest.h>
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

TEST(SecCertificate, SerialNumberIsTheEncodedOne) {
  NSData *serial =
      (NSData *)SecCertificateCopySerialNumberData(CertificateOf(SomeCertificate()), nullptr);
  EXPECT_EQ(TextOf([serial autorelease]), "<01>");
}

// The value of a name among a certificate's; the certificate is asked for that name alone or all.
id ValueOf(const Bytes &der, CFStringRef name, bool alone) {
  NSArray *names = alone ? @[ (id)name ] : nil;
  NSDictionary *values =
      (NSDictionary *)SecCertificateCopyValues(CertificateOf(der), (CFArrayRef)names, nullptr);
  EXPECT_EQ([values count], alone ? 1U : 3U);
  return [[[values autorelease] objectForKey:(id)name] objectForKey:(id)kSecPropertyKeyValue];
}

TEST(SecCertificate, DatesAreNumbersOfSecondsSince2001) {
  for (const bool alone : {true, false}) {
    const double begin =
        [ValueOf(SomeCertificate(), kSecOIDX509V1ValidityNotBefore, alone) doubleValue];
    const double end =
        [ValueOf(SomeCertificate(), kSecOIDX509V1ValidityNotAfter, alone) doubleValue];
    EXPECT_NEAR(begin, [[NSDate date] timeIntervalSinceReferenceDate], 86400);
    EXPECT_EQ(end, begin + 86400);
  }
}

TEST(SecCertificate, ADateThatCannotBeReadIsAnError) {
  Bytes der = SomeCertificate();
  const Bytes head = {0x17, 0x0D};  // a UTCTime of 13 letters
  const auto found = std::ranges::search(der, head);
  ASSERT_FALSE(found.empty());
  found.end()[0] = 'x';
  CFErrorRef error = nullptr;
  EXPECT_EQ(SecCertificateCopyValues(CertificateOf(der), nullptr, &error), nullptr);
  EXPECT_EQ([[(NSError *)error autorelease] code], -26275);  // errSecDecode
  EXPECT_EQ(SecCertificateCopyValues(CertificateOf(der), nullptr, nullptr), nullptr);
}

TEST(SecCertificate, IssuerIsASectionOfItsParts) {
  const Bytes der = MakeCertificate({.issuer = "Käthe's CA"});
  NSArray *parts = ValueOf(der, kSecOIDX509V1IssuerName, true);
  ASSERT_EQ([parts count], 1U);
  NSDictionary *part = [parts objectAtIndex:0];
  EXPECT_TRUE([[part objectForKey:(id)kSecPropertyKeyLabel] isEqual:(id)kSecOIDCommonName]);
  EXPECT_EQ(TextOf([part objectForKey:(id)kSecPropertyKeyValue]), "Käthe's CA");
}

TEST(SecCertificate, AnUnknownValueIsLeftOut) {
  NSDictionary *values = (NSDictionary *)SecCertificateCopyValues(
      CertificateOf(SomeCertificate()), (CFArrayRef) @[ @"1.2.3" ], nullptr);
  EXPECT_EQ([[values autorelease] count], 0U);
}

TEST(CommonDigest, IsSha256) {
  unsigned char digest[CC_SHA256_DIGEST_LENGTH];
  EXPECT_EQ(CC_SHA256("abc", 3, digest), digest);
  EXPECT_EQ(TextOf([NSData dataWithBytes:digest length:4]), "<ba7816bf>");
}

}  // namespace
