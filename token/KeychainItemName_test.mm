// Names of keychain items.
#import "token/KeychainItemName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#include "token/testing/test_certificates.h"
#include "token/testing/token_fixture.h"

namespace {

using token_testing::CertificateDer;
using token_testing::Data;
using token_testing::KeyKind;
using token_testing::Text;

class KeychainItemNameTest : public testing::Test {
 protected:
  KeychainItemNameTest()
      : item_([[[TKTokenKeychainItem alloc] initWithObjectID:@"id"] autorelease]) {}
  ~KeychainItemNameTest() override { [TKTokenKeychainItem setLabelsFromSubject:YES]; }

  static SecCertificateRef Certificate() {
    NSData *der = Data(CertificateDer(KeyKind::kEllipticCurve, "Subject"));
    return (SecCertificateRef)[(id)SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)der)
                                   autorelease];
  }

  token_testing::Pool pool_;
  TKTokenKeychainItem *item_;
};

TEST_F(KeychainItemNameTest, ItemWithoutLabelIsLabelledWithTheName) {
  ASSERT_EQ([item_ label], nil);
  [item_ setName:@"B"];
  EXPECT_EQ(Text([item_ label]), "B");
}

TEST_F(KeychainItemNameTest, LabelThatIsThereFollowsTheNameInParentheses) {
  [item_ setLabel:@"A"];
  [item_ setName:@"B"];
  EXPECT_EQ(Text([item_ label]), "B (A)");
}

TEST_F(KeychainItemNameTest, EmptyLabelCountsAsALabel) {
  [item_ setLabel:@""];
  [item_ setName:@"B"];
  EXPECT_EQ(Text([item_ label]), "B ()");
}

TEST_F(KeychainItemNameTest, EmptyNameIsAName) {
  [item_ setName:@""];
  EXPECT_EQ(Text([item_ label]), "");
  [item_ setLabel:@"A"];
  [item_ setName:@""];
  EXPECT_EQ(Text([item_ label]), " (A)");
}

TEST_F(KeychainItemNameTest, NamesPileUp) {
  [item_ setName:@"A"];
  [item_ setName:@"B"];
  [item_ setName:@"C"];
  EXPECT_EQ(Text([item_ label]), "C (B (A))");
}

TEST_F(KeychainItemNameTest, NameIsTextAndNoFormat) {
  [item_ setLabel:@"%s %n"];
  [item_ setName:@"100 %@"];
  EXPECT_EQ(Text([item_ label]), "100 %@ (%s %n)");
}

TEST_F(KeychainItemNameTest, UmlautsStay) {
  [item_ setLabel:[NSString stringWithUTF8String:"Müller"]];
  [item_ setName:[NSString stringWithUTF8String:"Schlüssel"]];
  EXPECT_EQ(Text([item_ label]), "Schlüssel (Müller)");
}

TEST_F(KeychainItemNameTest, CertificatesAndKeysAreNamedAlike) {
  for (Class itemClass : {[TKTokenKeychainCertificate class], [TKTokenKeychainKey class]}) {
    for (BOOL labelled : {YES, NO}) {
      [TKTokenKeychainItem setLabelsFromSubject:labelled];
      TKTokenKeychainKey *item = [[[itemClass alloc] initWithCertificate:Certificate()
                                                                objectID:@"id"] autorelease];
      [item setName:@"Name"];
      EXPECT_EQ(Text([item label]), labelled ? "Name (Subject)" : "Name");
    }
  }
}

}  // namespace
