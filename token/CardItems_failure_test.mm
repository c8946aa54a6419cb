// Cards that cannot be read, or only in part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "token/testing/card_items_fixture.h"
#include "token/testing/replaced_method.h"

// The linker gives these names to what --wrap redirects. The platform takes no null data.
static int certificates_without_data = 0;
extern "C" SecCertificateRef __real_SecCertificateCreateWithData(CFAllocatorRef, CFDataRef);
extern "C" SecCertificateRef __wrap_SecCertificateCreateWithData(CFAllocatorRef allocator,
                                                                 CFDataRef data) {
  if (data == nullptr) ++certificates_without_data;
  return __real_SecCertificateCreateWithData(allocator, data);
}

namespace {

using scripted::Bytes;
using scripted::Call;
using scripted::Function;
using testing::ElementsAre;
using token_testing::CertificateDer;
using token_testing::Constraints;
using token_testing::ErrorLine;
using token_testing::KeyKind;
using token_testing::ReplacedMethod;

const char kCount1[] = "default: Zertifikate gefunden: Anzahl 1";
const char kCertificates[] = "default: \nZertifikate:\n";
const char kCertId[] = "default: CertID: 0x0B, ";

class CardItemsFailureTest : public testing::Test, protected token_testing::CardItemsFixture {
 protected:
  // The first certificate and its key are left out, the second pair is there.
  void ExpectTheSecondAlone() {
    EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1, 2}, Bytes{2, 2}));
  }
  // The first certificate's key alone is left out.
  void ExpectAllButTheFirstKey() {
    EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1, 1}, Bytes{1, 2}, Bytes{2, 2}));
  }
};

// --- Failures that end the reading ---

TEST_F(CardItemsFailureTest, SearchThatCannotStartEndsTheReading) {
  AddCertificateAndKey({1});
  module_.Return(Function::C_FindObjectsInit, CKR_OPERATION_ACTIVE);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_THAT(module_.Names(), ElementsAre("C_FindObjectsInit"));
  EXPECT_THAT(Log(), ElementsAre(ErrorLine("C_FindObjectsInit: CKO_CERTIFICATE",
                                           "CKR_OPERATION_ACTIVE (0x90)")));
}

TEST_F(CardItemsFailureTest, SearchThatFailsEndsTheReading) {
  AddCertificateAndKey({1});
  module_.Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_THAT(module_.Names(), ElementsAre("C_FindObjectsInit", "C_FindObjects"));
  EXPECT_THAT(Log(),
              ElementsAre(ErrorLine("C_FindObjects: CKO_CERTIFICATE", "CKR_DEVICE_ERROR (0x30)")));
}

TEST_F(CardItemsFailureTest, CertificateThatCannotBeReadEndsTheReading) {
  AddCertificateAndKey({1});
  module_.ReturnAt(Function::C_GetAttributeValue, 1, CKR_DEVICE_REMOVED);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_THAT(module_.Names(),
              ElementsAre("C_FindObjectsInit", "C_FindObjects", "C_GetAttributeValue"));
  EXPECT_THAT(Log(),
              ElementsAre(kCount1, kCertificates, kCertId,
                          ErrorLine("C_GetAttributeValue: cert_info", "CKR_DEVICE_REMOVED (0x32)"),
                          ErrorLine("get_cert_info", "CKR_DEVICE_REMOVED (0x32)")));
}

TEST_F(CardItemsFailureTest, CertificateTooLongForTheRecordEndsTheReading) {
  card_.AddCertificate({1}, "Long", Bytes(4097));
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_EQ(Log().back(), ErrorLine("get_cert_info", "CKR_BUFFER_TOO_SMALL (0x150)"));
}

TEST_F(CardItemsFailureTest, LaterCertificateThatCannotBeReadDropsTheItemsBefore) {
  AddCertificates(2);
  module_.ReturnAt(Function::C_GetAttributeValue, 7, CKR_DEVICE_REMOVED);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_EQ(Log().back(), ErrorLine("get_cert_info", "CKR_DEVICE_REMOVED (0x32)"));
}

TEST_F(CardItemsFailureTest, KeySearchThatCannotStartEndsTheReading) {
  AddCertificateAndKey({1});
  module_.ReturnAt(Function::C_FindObjectsInit, 2, CKR_OPERATION_ACTIVE);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_THAT(module_.Names(), ElementsAre("C_FindObjectsInit", "C_FindObjects",
                                           "C_GetAttributeValue", "C_FindObjectsInit"));
  EXPECT_THAT(Log(), ElementsAre(kCount1, kCertificates, kCertId,
                                 ErrorLine("C_FindObjectsInit: CKO_PUBLIC_KEY",
                                           "CKR_OPERATION_ACTIVE (0x90)"),
                                 ErrorLine("get_pub_key", "CKR_OPERATION_ACTIVE (0x90)")));
}

TEST_F(CardItemsFailureTest, KeySearchThatFailsEndsTheReading) {
  AddCertificates(2);
  module_.ReturnAt(Function::C_FindObjects, 3, CKR_GENERAL_ERROR);
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_EQ(Log().back(), ErrorLine("get_pub_key", "CKR_GENERAL_ERROR (0x5)"));
}

TEST_F(CardItemsFailureTest, CountBeyondTheHandlesWrittenReadsNoHandle) {
  AddCertificateAndKey({1});
  card_.claimed_found = 2;
  EXPECT_EQ(MakeItems(), nil);
  EXPECT_EQ(Log().back(), ErrorLine("get_cert_info", "CKR_OBJECT_HANDLE_INVALID (0x82)"));
}

// --- What leaves a certificate out, without a word ---

TEST_F(CardItemsFailureTest, RejectedEncodingSkipsCertificateAndKeyWithoutAWord) {
  card_.AddCertificate({1}, "Broken", {0x30, 0x03, 0x02, 0x01, 0x00});
  card_.AddPublicKey({1});
  EXPECT_EQ([MakeItems() count], 0u);
  EXPECT_THAT(Log(), ElementsAre(kCount1, kCertificates, kCertId));
  EXPECT_THAT(module_.Names(),
              ElementsAre("C_FindObjectsInit", "C_FindObjects", "C_GetAttributeValue"));
}

TEST_F(CardItemsFailureTest, EmptyEncodingSkipsTheCertificate) {
  card_.AddCertificate({1}, "Empty", {});
  AddCertificateAndKey({2});
  ExpectTheSecondAlone();
}

TEST_F(CardItemsFailureTest, LabelThatIsNotAsciiSkipsCertificateAndKeyWithoutAWord) {
  AddCertificateAndKey({1}, "Schl\xC3\xBCssel");
  EXPECT_EQ([MakeItems() count], 0u);
  EXPECT_THAT(Log(), ElementsAre(kCount1, kCertificates, kCertId));
  EXPECT_EQ(module_.Count(Function::C_FindObjectsInit), 1u);
}

TEST_F(CardItemsFailureTest, NoMemoryForTheObjectIdSkipsTheCertificate) {
  AddCertificates(2);
  module_.Observe([](const Call &call) {
    if (call.Text().find("7, 11,") != std::string::npos) wrapped::calls().fail_malloc = 1;
  });
  ExpectTheSecondAlone();
}

TEST_F(CardItemsFailureTest, NoCertificateDataSkipsTheCertificate) {
  static bool fail = false;
  static IMP original = nullptr;
  fail = true;
  const ReplacedMethod replaced(
      object_getClass([NSData class]), @selector(dataWithBytes:length:),
      reinterpret_cast<IMP>(+[](id self, SEL command, const void *bytes, NSUInteger length) -> id {
        if (std::exchange(fail, false)) return nil;
        return reinterpret_cast<id (*)(id, SEL, const void *, NSUInteger)>(original)(self, command,
                                                                                     bytes, length);
      }));
  original = replaced.original();
  AddCertificates(2);
  certificates_without_data = 0;
  ExpectTheSecondAlone();
  EXPECT_EQ(certificates_without_data, 0);
}

TEST_F(CardItemsFailureTest, NoCertificateItemSkipsCertificateAndKeyWithoutAWord) {
  static bool fail = false;
  static IMP original = nullptr;
  fail = true;
  const ReplacedMethod replaced(
      [TKTokenKeychainCertificate class], @selector(initWithCertificate:objectID:),
      reinterpret_cast<IMP>(+[](id self, SEL command, id certificate, id object_id) -> id {
        if (!std::exchange(fail, false)) {
          return reinterpret_cast<id (*)(id, SEL, id, id)>(original)(self, command, certificate,
                                                                     object_id);
        }
        [self release];
        return nil;
      }));
  original = replaced.original();
  AddCertificates(2);
  ExpectTheSecondAlone();
  const std::vector<std::string> log = Log();
  ASSERT_GE(log.size(), 4u);
  EXPECT_THAT(std::vector(log.begin() + 2, log.begin() + 4),
              ElementsAre(kCertId, "default: CertID: 0x0D, "));
  EXPECT_EQ(module_.Count(Function::C_FindObjectsInit), 2u);  // no search for the first key
}

// --- What leaves a key out, without a word ---

TEST_F(CardItemsFailureTest, NoKeyItemKeepsTheCertificate) {
  card_.AddCertificate({1}, "Edwards", CertificateDer(KeyKind::kEd25519, "Edwards"));
  card_.AddPublicKey({1}).SetText(CKA_LABEL, "Edwards").SetFlag(CKA_VERIFY, true);
  EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1, 1}));
  EXPECT_THAT(Log(), ElementsAre(kCount1, kCertificates, kCertId));
  EXPECT_EQ(module_.Count(Function::C_GetAttributeValue), 2u);  // no usage flags
}

TEST_F(CardItemsFailureTest, KeyLabelThatIsNotAsciiKeepsTheCertificate) {
  AddCertificateAndKey({1}).SetText(CKA_LABEL, "\xFC");
  AddCertificateAndKey({2});
  ExpectAllButTheFirstKey();
}

TEST_F(CardItemsFailureTest, NoMemoryForTheKeysObjectIdKeepsTheCertificate) {
  static IMP original = nullptr;
  const ReplacedMethod replaced(
      [TKTokenKeychainKey class], @selector(initWithCertificate:objectID:),
      reinterpret_cast<IMP>(+[](id self, SEL command, id certificate, id object_id) -> id {
        EXPECT_NE(object_id, nil);  // the platform takes no key without one
        return reinterpret_cast<id (*)(id, SEL, id, id)>(original)(self, command, certificate,
                                                                   object_id);
      }));
  original = replaced.original();
  AddCertificates(2);
  module_.Observe([](const Call &call) {
    if (call.Text().find("7, 12, {0x3[") != std::string::npos) wrapped::calls().fail_malloc = 1;
  });
  ExpectAllButTheFirstKey();
}

// --- What the reading goes on after ---

TEST_F(CardItemsFailureTest, KeyLabelThatCannotBeReadIsEmpty) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}).Refuse(CKA_LABEL, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("Certificate", ""));
  EXPECT_THAT(
      Log(), ElementsAre(
                 kCount1, kCertificates, kCertId,
                 ErrorLine("C_GetAttributeValue: CKA_LABEL", "CKR_ATTRIBUTE_SENSITIVE (0x11)"),
                 ErrorLine("get_label für pubKey", "CKR_ATTRIBUTE_SENSITIVE (0x11)"),
                 "default: keySign YES.", "default: keyDecipher NO.", "default: keyAgreement NO."));
}

TEST_F(CardItemsFailureTest, UnreadableKeyLabelHasNothingOfTheLabelBefore) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}).SetText(CKA_LABEL, "First");
  AddCertificateAndKey({2}).Refuse(CKA_LABEL, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("Certificate", "First", "Certificate", ""));
}

TEST_F(CardItemsFailureTest, CertificateWithoutAPublicKeyGetsAKeyItemAllTheSame) {
  card_.AddCertificate({1}, "Lonely", Der());
  card_.AddPrivateKey({1}).SetText(CKA_LABEL, "Private").SetFlag(CKA_VERIFY, true);
  NSArray *items = MakeItems();
  EXPECT_THAT(Labels(items), ElementsAre("Lonely (Subject)", " (Subject)"));
  EXPECT_EQ(Constraints([items objectAtIndex:1]), "");
  const std::string invalid = "CKR_OBJECT_HANDLE_INVALID (0x82)";
  const std::string flag = ErrorLine("C_GetAttributeValue: is_attr_supported", invalid);
  EXPECT_THAT(
      Log(),
      ElementsAre(kCount1, kCertificates, kCertId, "error: Keinen öffentlichen Schlüssel gefunden.",
                  ErrorLine("C_GetAttributeValue: CKA_LABEL", invalid),
                  ErrorLine("get_label für pubKey", invalid), flag, "default: keySign NO.", flag,
                  flag, "default: keyDecipher NO.", flag, "default: keyAgreement NO."));
  EXPECT_EQ(module_.Texts().back(), "C_GetAttributeValue(7, 0, {0x10c[1024]})");
}

// A failed read keeps the flag of the key before, deliberately.
TEST_F(CardItemsFailureTest, FlagsOutliveAKeyWhenTheNextOnesCannotBeRead) {
  AddCertificateAndKey({1}).SetFlag(CKA_ENCRYPT, true).SetFlag(CKA_DERIVE, true);
  card_.AddCertificate({2}, "Lonely", Der());
  card_.AddCertificate({3}, "Lonely too", Der());
  NSArray *items = MakeItems();
  ASSERT_EQ([items count], 6u);
  for (NSUInteger key : {1U, 3U, 5U}) {
    EXPECT_EQ(Constraints([items objectAtIndex:key]), "2=PIN 3=PIN 4=PIN") << key;
  }
}

TEST_F(CardItemsFailureTest, FlagsOutliveASkippedKeyToo) {
  AddCertificateAndKey({1}).SetFlag(CKA_ENCRYPT, true);
  card_.AddCertificate({2}, "Broken", {0x30});
  AddCertificateAndKey({3}).Refuse(CKA_ENCRYPT, CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(Constraints([MakeItems() objectAtIndex:3]), "2=PIN 3=PIN");
}

TEST_F(CardItemsFailureTest, FlagsStartAsNoForEachCard) {
  AddCertificateAndKey({1}).SetFlag(CKA_ENCRYPT, true).SetFlag(CKA_DERIVE, true);
  MakeItems();
  module_.Reset();
  card_.AddCertificate({2}, "Lonely", Der());
  EXPECT_EQ(Constraints([MakeItems() objectAtIndex:1]), "");
}

}  // namespace
