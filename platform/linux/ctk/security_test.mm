#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using test_certificates::KeyKind;

bool IsAccepted(const std::vector<uint8_t> &bytes) { return CertificateOf(bytes) != nullptr; }

std::vector<uint8_t> SomeCertificate() {
  static const std::vector<uint8_t> der =
      test_certificates::make(KeyKind::kP256, {{"CN", "Test"}}).der;
  return der;
}

TEST(SecCertificate, EmptyDataIsRefused) { EXPECT_FALSE(IsAccepted({})); }

TEST(SecCertificate, TextIsRefused) {
  const char text[] = "-----BEGIN CERTIFICATE-----";
  EXPECT_FALSE(IsAccepted(std::vector<uint8_t>(text, text + sizeof(text))));
}

TEST(SecCertificate, OtherDerIsRefused) {
  EXPECT_FALSE(IsAccepted({0x30, 0x03, 0x02, 0x01, 0x05}));
}

TEST(SecCertificate, EveryTruncationIsRefused) {
  const std::vector<uint8_t> der = SomeCertificate();
  for (size_t size = 0; size < der.size(); ++size) {
    EXPECT_FALSE(IsAccepted(std::vector<uint8_t>(der.begin(), der.begin() + (long)size))) << size;
  }
}

TEST(SecCertificate, TrailingByteIsRefused) {
  std::vector<uint8_t> der = SomeCertificate();
  der.push_back(0);
  EXPECT_FALSE(IsAccepted(der));
}

TEST(SecCertificate, TwoCertificatesInARowAreRefused) {
  std::vector<uint8_t> der = SomeCertificate();
  const std::vector<uint8_t> second = SomeCertificate();
  der.insert(der.end(), second.begin(), second.end());
  EXPECT_FALSE(IsAccepted(der));
}

TEST(SecCertificate, LengthThatIsNotTheShortestIsRefused) {
  std::vector<uint8_t> der = SomeCertificate();
  ASSERT_EQ(der[1], 0x82);  // two bytes of length follow: write them as three
  der[1] = 0x83;
  der.insert(der.begin() + 2, 0);
  EXPECT_FALSE(IsAccepted(der));
}

TEST(SecCertificate, CopyDataGivesBackTheBytes) {
  const std::vector<uint8_t> der = SomeCertificate();
  SecCertificateRef certificate = CertificateOf(der);
  ASSERT_NE(certificate, nullptr);
  NSData *copy = (NSData *)SecCertificateCopyData(certificate);
  EXPECT_TRUE([copy isEqual:DataOf(der)]);
  CFRelease(copy);
}

TEST(SecCertificate, KeepsItsOwnCopyOfTheBytes) {
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

TEST(SecCertificate, SameBytesAreEqual) {
  SecCertificateRef one = CertificateOf(SomeCertificate());
  EXPECT_TRUE([(id)one isEqual:(id)CertificateOf(SomeCertificate())]);
  EXPECT_EQ([(id)one hash], [(id)CertificateOf(SomeCertificate()) hash]);
  const auto other = test_certificates::make(KeyKind::kP256, {{"CN", "Test"}});
  EXPECT_FALSE([(id)one isEqual:(id)CertificateOf(other.der)]);
  EXPECT_FALSE([(id)one isEqual:@"text"]);
}

std::string SummaryOf(const test_certificates::Subject &subject) {
  return TextOf(TKCertificateSubjectSummary(
      CertificateOf(test_certificates::make(KeyKind::kP256, subject).der)));
}

TEST(SubjectSummary, IsNilForAnEmptySubject) { EXPECT_EQ(SummaryOf({}), "nil"); }

TEST(SubjectSummary, IsNilWithoutANameOrItsSubstitutes) {
  EXPECT_EQ(SummaryOf({{"C", "DE"}}), "nil");
}

TEST(SubjectSummary, PrefersTheCommonName) {
  EXPECT_EQ(SummaryOf({{"C", "DE"}, {"O", "Firm"}, {"OU", "Unit"}, {"CN", "Name"}}), "Name");
}

TEST(SubjectSummary, SubstitutesUnitOrganisationThenMail) {
  EXPECT_EQ(SummaryOf({{"emailAddress", "a@b"}, {"O", "Firm"}, {"OU", "Unit"}}), "Unit");
  EXPECT_EQ(SummaryOf({{"emailAddress", "a@b"}, {"O", "Firm"}}), "Firm");
  EXPECT_EQ(SummaryOf({{"emailAddress", "a@b"}}), "a@b");
}

TEST(SubjectSummary, KeepsUmlauts) { EXPECT_EQ(SummaryOf({{"CN", "Müller"}}), "Müller"); }

}  // namespace
