#import <CryptoTokenKit/CryptoTokenKit.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

namespace {

TKTokenKeyAlgorithm *Algorithm(NSArray *algorithms) {
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:algorithms] autorelease];
}

NSString *const kMessage = @"algid:sign:ECDSA:message-X962:SHA256";
NSString *const kDigest = @"algid:sign:ECDSA:digest-X962:SHA256";
NSString *const kBase = @"algid:sign:ECDSA:digest-X962";

TEST(KeyAlgorithm, WithoutAlgorithmsIsNone) {
  EXPECT_EQ([Algorithm(@[]) isAlgorithm:kSecKeyAlgorithmRSASignatureRaw], NO);
  EXPECT_EQ([Algorithm(@[]) supportsAlgorithm:kSecKeyAlgorithmRSASignatureRaw], NO);
}

TEST(KeyAlgorithm, IsTheTargetAlone) {
  TKTokenKeyAlgorithm *algorithm = Algorithm(@[ kMessage, kDigest, kBase ]);
  EXPECT_EQ([algorithm isAlgorithm:kSecKeyAlgorithmECDSASignatureMessageX962SHA256], NO);
  EXPECT_EQ([algorithm isAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962SHA256], NO);
  EXPECT_NE([algorithm isAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962], NO);
}

TEST(KeyAlgorithm, SupportsTheTargetAndWhatWasPassedOnTheWay) {
  TKTokenKeyAlgorithm *algorithm = Algorithm(@[ kMessage, kDigest, kBase ]);
  EXPECT_NE([algorithm supportsAlgorithm:kSecKeyAlgorithmECDSASignatureMessageX962SHA256], NO);
  EXPECT_NE([algorithm supportsAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962SHA256], NO);
  EXPECT_NE([algorithm supportsAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962], NO);
  EXPECT_EQ([algorithm supportsAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962SHA1], NO);
}

TEST(KeyAlgorithm, ComparesByValue) {
  NSString *text = [NSMutableString stringWithString:kBase];
  EXPECT_NE([Algorithm(@[ text ]) isAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962], NO);
}

TEST(KeyAlgorithm, KeepsItsOwnListInOrder) {
  NSMutableArray *list = [NSMutableArray arrayWithObjects:kMessage, kBase, nil];
  TKTokenKeyAlgorithm *algorithm = Algorithm(list);
  [list removeAllObjects];
  NSArray *expected = @[ kMessage, kBase ];
  EXPECT_TRUE([[algorithm algorithms] isEqual:expected]);
}

TEST(KeyExchangeParameters, MayLackSharedInfo) {
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:0 sharedInfo:nil] autorelease];
  EXPECT_EQ([parameters requestedSize], 0);
  EXPECT_EQ([parameters sharedInfo], nil);
}

TEST(KeyExchangeParameters, KeepSizeAndACopyOfTheInfo) {
  NSMutableData *info = [NSMutableData dataWithBytes:"info" length:4];
  TKTokenKeyExchangeParameters *parameters =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:32 sharedInfo:info] autorelease];
  [info setLength:0];
  EXPECT_EQ([parameters requestedSize], 32);
  EXPECT_TRUE([[parameters sharedInfo] isEqual:[NSData dataWithBytes:"info" length:4]]);
}

}  // namespace
