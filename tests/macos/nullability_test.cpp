// What our headers of Apple's frameworks say about who may be nil, and about the members of
// collections, of which metadata know nothing: each kind of difference from the table is found.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/testing/header_check.h"
#include "tests/macos/testing/spoiled_headers.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;

using NullabilityTest = SpoiledHeaders;

TEST_F(NullabilityTest, FindsResultThatMayNoLongerBeNil) {
  Replace(TokenKit("TKTokenKeychain.h"),
          "- (nullable instancetype)initWithCertificate:(SecCertificateRef)certificate",
          "- (instancetype)initWithCertificate:(SecCertificateRef)certificate");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: class TKTokenKeychainCertificate: expected - "
                          "initWithCertificate:objectID: instancetype? (SecCertificateRef!, "
                          "TKTokenObjectID!), got - initWithCertificate:objectID: instancetype! "
                          "(SecCertificateRef!, TKTokenObjectID!)"));
}

TEST_F(NullabilityTest, FindsArgumentThatMayNoLongerBeNil) {
  Replace(TokenKit("TKTokenKeychain.h"), "(nullable SecCertificateRef)", "(SecCertificateRef)");
  EXPECT_THAT(
      CheckListing(copy_),
      ElementsAre("arm64: class TKTokenKeychainKey: expected - initWithCertificate:objectID: "
                  "instancetype? (SecCertificateRef?, TKTokenObjectID!), got - "
                  "initWithCertificate:objectID: instancetype? (SecCertificateRef!, "
                  "TKTokenObjectID!)"));
}

TEST_F(NullabilityTest, FindsPropertyThatMayNoLongerBeNil) {
  Replace(TokenKit("TKTokenAuthOperation.h"), "(copy, nullable) NSString *PIN",
          "(copy) NSString *PIN");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: class TKTokenSmartCardPINAuthOperation: expected property PIN "
                          "NSString *?, got property PIN NSString *!"));
}

TEST_F(NullabilityTest, FindsHeaderThatNoLongerSaysWhatMayBeNil) {
  Replace(TokenKit("TKTokenAuthOperation.h"), "#pragma clang assume_nonnull begin", "");
  Replace(TokenKit("TKTokenAuthOperation.h"), "#pragma clang assume_nonnull end", "");
  EXPECT_THAT(CheckListing(copy_), ElementsAre("arm64: class TKTokenAuthOperation: expected - "
                                               "finishWithError: BOOL (NSError *? *?), got - "
                                               "finishWithError: BOOL (NSError **)"));
}

TEST_F(NullabilityTest, FindsClassOfTheMembersOfACollection) {
  Replace(TokenKit("TKTokenKeychain.h"), "(NSArray<TKTokenKeychainItem *> *)items",
          "(NSArray<NSData *> *)items");
  EXPECT_THAT(CheckListing(copy_),
              ElementsAre("arm64: class TKTokenKeychainContents: expected - fillWithItems: void "
                          "(NSArray<TKTokenKeychainItem *> *!), got - fillWithItems: void "
                          "(NSArray<NSData *> *!)"));
}

}  // namespace
}  // namespace kelvrin::macos
