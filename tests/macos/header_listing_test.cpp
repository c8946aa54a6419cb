// What our headers of Apple's frameworks declare without leaving metadata is the table's,
// declarations_c.txt, and nothing else; and each kind of difference is found.
#include "tests/macos/header_listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/macos/testing/header_check.h"
#include "tests/macos/testing/spoiled_headers.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(HeaderListingTest, IsTheTable) { EXPECT_THAT(CheckListing(Headers()), IsEmpty()); }

class HeaderListingOfTest : public SpoiledHeaders {
 protected:
  const std::filesystem::path core_ = copy_.includes / "CoreFoundation/CoreFoundation.h";
  const std::filesystem::path certificate_ = copy_.includes / "Security/SecCertificate.h";
  const std::filesystem::path algorithm_ = copy_.includes / "Security/SecKeyAlgorithm.h";
  const std::filesystem::path log_ = copy_.includes / "os/log.h";
};

TEST_F(HeaderListingOfTest, FunctionThatIsNotInTheTable) {
  Append(log_, "extern \"C\" void _os_log_error_impl(void* dso, os_log_t log, uint32_t size);\n");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework os: expected no function _os_log_error_impl "
                          "void (void *, os_log_t, uint32_t)"));
}

TEST_F(HeaderListingOfTest, FunctionThatIsMissing) {
  Replace(core_, "void CFRelease(CFTypeRef object);", "");
  EXPECT_THAT(CheckListing(copy_), ElementsAre("arm64: framework CoreFoundation: expected function "
                                               "CFRelease void (CFTypeRef!), got none"));
}

TEST_F(HeaderListingOfTest, FunctionOfAnotherType) {
  Replace(core_, "CFTypeRef CFRetain(", "void CFRetain(");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework CoreFoundation: expected function CFRetain CFTypeRef! "
                          "(CFTypeRef!), got function CFRetain void (CFTypeRef!)"));
}

TEST_F(HeaderListingOfTest, FunctionOfAnotherLanguage) {
  Replace(certificate_, "extern \"C\" {", "extern \"C++\" {");
  EXPECT_THAT(
      CheckListing(copy_),
      ElementsAre("arm64: framework Security: expected function SecCertificateCopyData CFDataRef! "
                  "(SecCertificateRef!), got function SecCertificateCopyData CFDataRef! "
                  "(SecCertificateRef!) with the symbol "
                  "__Z22SecCertificateCopyDataP16__SecCertificate",
                  "arm64: framework Security: expected function SecCertificateCreateWithData "
                  "SecCertificateRef? (CFAllocatorRef?, CFDataRef!), got function "
                  "SecCertificateCreateWithData SecCertificateRef? (CFAllocatorRef?, CFDataRef!) "
                  "with the symbol "
                  "__Z28SecCertificateCreateWithDataPK13__CFAllocatorPK8__CFData"));
}

TEST_F(HeaderListingOfTest, FunctionWithTypesThatAreNotInTheTable) {
  Append(certificate_,
         "struct __SecKey { int size; };\ntypedef struct __SecKey* SecKeyRef;\n"
         "extern \"C\" SecKeyRef SecCertificateCopyKey(SecCertificateRef certificate);\n");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework Security: expected no function SecCertificateCopyKey "
                          "SecKeyRef (SecCertificateRef)",
                          "arm64: framework Security: expected no typedef SecKeyRef struct "
                          "__SecKey *",
                          "arm64: expected no struct __SecKey"));
}

TEST_F(HeaderListingOfTest, StructWithFields) {
  Replace(certificate_, "typedef struct __SecCertificate*",
          "typedef struct __SecCertificate { int size; }*");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: struct __SecCertificate: expected no size int"));
}

TEST_F(HeaderListingOfTest, ConstantThatIsNotInTheTable) {
  Replace(algorithm_, "extern const SecKeyAlgorithm kSecKeyAlgorithmECDHKeyExchangeCofactor;",
          "extern const SecKeyAlgorithm kSecKeyAlgorithmECDHKeyExchangeCofactor;\n"
          "extern const SecKeyAlgorithm kSecKeyAlgorithmECDSASignatureDigestRFC4754;");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework Security: expected no variable "
                          "kSecKeyAlgorithmECDSASignatureDigestRFC4754 const SecKeyAlgorithm!"));
}

TEST_F(HeaderListingOfTest, ConstantOfAnotherType) {
  Replace(TokenKit("TKBase.h"), "NSString *const TKErrorDomain", "NSString *TKErrorDomain");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework CryptoTokenKit: expected variable TKErrorDomain "
                          "NSString *const!, got variable TKErrorDomain NSString *!"));
}

TEST_F(HeaderListingOfTest, ConstantThatIsAMacro) {
  Replace(log_, "((os_log_type_t)0x01)", "((os_log_type_t)7)");
  EXPECT_THAT(
      CheckListing(copy_),
      ElementsAre("arm64: framework os: expected macro OS_LOG_TYPE_INFO ((os_log_type_t)0x01), "
                  "got macro OS_LOG_TYPE_INFO ((os_log_type_t)7)"));
}

TEST_F(HeaderListingOfTest, TypedefOfAnotherType) {
  Replace(TokenKit("TKBase.h"), "typedef id TKTokenObjectID", "typedef NSData *TKTokenObjectID");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework CryptoTokenKit: expected typedef TKTokenObjectID id, "
                          "got typedef TKTokenObjectID NSData *"));
}

TEST_F(HeaderListingOfTest, EnumeratorThatIsNotInTheTable) {
  Replace(TokenKit("TKBase.h"), "TKErrorCodeTokenNotFound = -7,",
          "TKErrorCodeTokenNotFound = -7,\n  TKErrorTokenNotFound = TKErrorCodeTokenNotFound,");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: enum TKErrorCode: expected no TKErrorTokenNotFound = -7"));
}

TEST_F(HeaderListingOfTest, EnumeratorWithAnotherNumber) {
  Replace(TokenKit("TKBase.h"), "TKErrorCodeCorruptedData = -3", "TKErrorCodeCorruptedData = -33");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: enum TKErrorCode: expected TKErrorCodeCorruptedData = -3, got "
                          "TKErrorCodeCorruptedData = -33"));
}

TEST_F(HeaderListingOfTest, EnumeratorsWithoutNumbers) {
  Replace(TokenKit("TKBase.h"), "TKTokenOperationReadData = 1", "TKTokenOperationReadData");
  Replace(TokenKit("TKBase.h"), "TKTokenOperationSignData = 2", "TKTokenOperationSignData");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: enum TKTokenOperation: expected TKTokenOperationReadData = 1, "
                          "got TKTokenOperationReadData = 0",
                          "arm64: enum TKTokenOperation: expected TKTokenOperationSignData = 2, "
                          "got TKTokenOperationSignData = 1"));
}

TEST_F(HeaderListingOfTest, EnumOfAnotherType) {
  Replace(TokenKit("TKBase.h"), "NS_ENUM(NSInteger, TKTokenOperation)",
          "NS_ENUM(NSUInteger, TKTokenOperation)");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: expected enum TKTokenOperation : NSInteger, got "
                          "enum TKTokenOperation : NSUInteger"));
}

TEST_F(HeaderListingOfTest, EnumThatIsNotInTheTable) {
  Append(TokenKit("TKSmartCardToken.h"),
         "typedef NS_ENUM(NSInteger, TKSmartCardSlotState) { TKSmartCardSlotStateEmpty = 2 };\n");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework CryptoTokenKit: expected no typedef "
                          "TKSmartCardSlotState enum TKSmartCardSlotState",
                          "arm64: expected no enum TKSmartCardSlotState"));
}

TEST_F(HeaderListingOfTest, EnumWithoutANameThatIsNotInTheTable) {
  Append(TokenKit("TKBase.h"), "enum { TKNumber };\n");
  EXPECT_THAT(CheckListing(copy_), ElementsAre("arm64: expected no enum (TKNumber)"));
}

TEST_F(HeaderListingOfTest, CategoryThatIsNotInTheTable) {
  Append(TokenKit("TKToken.h"), "@interface TKToken (Additions)\n@end\n");
  EXPECT_THAT(CheckListing(copy_), ElementsAre("arm64: expected no category TKToken(Additions)"));
}

TEST_F(HeaderListingOfTest, ClassThatIsOnlyMentioned) {
  Append(TokenKit("TKToken.h"), "@class TKTokenConfiguration;\n");
  EXPECT_THAT(CheckListing(copy_), ElementsAre("arm64: expected no class TKTokenConfiguration"));
}

TEST_F(HeaderListingOfTest, HeaderThatNobodyImports) {
  Append(copy_.includes / "Security/SecKey.h", "extern \"C\" int SecKeyGetSize(void);\n");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: framework Security: expected no function SecKeyGetSize "
                          "int ()"));
}

TEST_F(HeaderListingOfTest, WhatIsNotUnderstood) {
  Append(TokenKit("TKBase.h"), "namespace tokens {}\n");
  EXPECT_THAT([this] { List(copy_); },
              testing::ThrowsMessage<std::runtime_error>("not understood: NamespaceDecl tokens"));
}

TEST_F(HeaderListingOfTest, WhatDoesNotCompile) {
  Append(TokenKit("TKBase.h"), "typedef TKUnknown TKOther;\n");
  EXPECT_THAT([this] { List(copy_); }, testing::ThrowsMessage<std::runtime_error>(
                                           HasSubstr("unknown type name 'TKUnknown'")));
}

}  // namespace
}  // namespace kelvrin::macos
