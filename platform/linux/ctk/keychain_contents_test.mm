#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#include <thread>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

using test_certificates::KeyKind;

class KeychainContents : public testing::Test {
 protected:
  KeychainContents()
      : certificate_(CertificateOf(test_certificates::make(KeyKind::kP256, {{"CN", "Name"}}).der)),
        contents_([[[TKTokenKeychainContents alloc] initForToken] autorelease]) {}

  TKTokenKeychainKey *Key(id objectID) const {
    return [[[TKTokenKeychainKey alloc] initWithCertificate:certificate_
                                                   objectID:objectID] autorelease];
  }
  TKTokenKeychainCertificate *Item(id objectID) const {
    return [[[TKTokenKeychainCertificate alloc] initWithCertificate:certificate_
                                                           objectID:objectID] autorelease];
  }

  SecCertificateRef certificate_;
  TKTokenKeychainContents *contents_;
};

TEST_F(KeychainContents, AbsentItemIsAnError) {
  [contents_ fillWithItems:@[ Key(@"a") ]];
  NSError *error = nil;
  EXPECT_EQ([contents_ keyForObjectID:@"b" error:&error], nil);
  EXPECT_EQ(TextOf([error domain]), "CryptoTokenKit");
  EXPECT_EQ([error code], TKErrorCodeObjectNotFound);
  error = nil;
  EXPECT_EQ([contents_ certificateForObjectID:@"b" error:&error], nil);
  EXPECT_EQ([error code], TKErrorCodeObjectNotFound);
}

TEST_F(KeychainContents, AbsentItemNeedsNoErrorToBeWritten) {
  EXPECT_EQ([contents_ keyForObjectID:@"b" error:nullptr], nil);
}

TEST_F(KeychainContents, ItemOfTheOtherKindIsAbsent) {
  [contents_ fillWithItems:@[ Key(@"key"), Item(@"certificate") ]];
  EXPECT_EQ([contents_ keyForObjectID:@"certificate" error:nullptr], nil);
  EXPECT_EQ([contents_ certificateForObjectID:@"key" error:nullptr], nil);
}

TEST_F(KeychainContents, IsEmptyAtTheStart) {
  EXPECT_EQ([[contents_ items] count], 0U);
  EXPECT_EQ([[contents_ duplicateObjectIDs] count], 0U);
}

TEST_F(KeychainContents, ItemsAreFoundByObjectID) {
  NSData *keyID = [NSData dataWithBytes:"\x01k" length:2];
  NSData *certificateID = [NSData dataWithBytes:"\x02k" length:2];
  TKTokenKeychainKey *key = Key(keyID);
  TKTokenKeychainCertificate *item = Item(certificateID);
  [contents_ fillWithItems:@[ item, key ]];
  NSError *error = nil;
  EXPECT_EQ([contents_ keyForObjectID:[NSData dataWithData:keyID] error:&error], key);
  EXPECT_EQ([contents_ certificateForObjectID:[NSData dataWithData:certificateID] error:&error],
            item);
  EXPECT_EQ(error, nil);
}

TEST_F(KeychainContents, FillingReplacesWhatWasThere) {
  [contents_ fillWithItems:@[ Key(@"a"), Key(@"b") ]];
  [contents_ fillWithItems:@[ Key(@"c") ]];
  EXPECT_EQ([[contents_ items] count], 1U);
  EXPECT_EQ([contents_ keyForObjectID:@"a" error:nullptr], nil);
  [contents_ fillWithItems:@[]];
  EXPECT_EQ([[contents_ items] count], 0U);
}

TEST_F(KeychainContents, KeepsItsOwnListOfItems) {
  NSMutableArray *items = [NSMutableArray arrayWithObject:Key(@"a")];
  [contents_ fillWithItems:items];
  [items removeAllObjects];
  EXPECT_EQ([[contents_ items] count], 1U);
}

TEST_F(KeychainContents, DuplicateObjectIDsAreReportedOnceAndTheItemsKept) {
  [contents_ fillWithItems:@[ Key(@"a"), Item(@"a"), Key(@"a"), Key(@"b"), Key(@"c"), Key(@"c") ]];
  EXPECT_EQ([[contents_ items] count], 6U);
  NSArray *expected = @[ @"a", @"c" ];
  EXPECT_TRUE([[contents_ duplicateObjectIDs] isEqual:expected]);
}

TEST_F(KeychainContents, FirstOfSeveralItemsWithOneIDIsFound) {
  TKTokenKeychainKey *first = Key(@"a");
  [contents_ fillWithItems:@[ Item(@"a"), first, Key(@"a") ]];
  EXPECT_EQ([contents_ keyForObjectID:@"a" error:nullptr], first);
}

TEST_F(KeychainContents, CanBeReadWhileTheyAreReplaced) {
  NSArray *one = @[ Key(@"a") ];
  NSArray *two = @[ Key(@"a"), Key(@"b") ];
  [contents_ fillWithItems:one];
  TKTokenKeychainContents *contents = contents_;
  std::thread writer([contents, one, two] {
    @autoreleasepool {
      for (int i = 0; i < 200; ++i) [contents fillWithItems:i % 2 == 0 ? two : one];
    }
  });
  int absent = 0;
  for (int i = 0; i < 200; ++i) {
    @autoreleasepool {
      if ([contents keyForObjectID:@"a" error:nullptr] == nil) ++absent;
    }
  }
  writer.join();
  EXPECT_EQ(absent, 0);
}

}  // namespace
