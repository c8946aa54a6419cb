// What cards of several kinds publish.
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"

namespace endtoend {
namespace {

// Inserts a card made so, for as long as it lives.
class InsertedCard {
 public:
  explicit InsertedCard(const kelvrin::CardOptions &options)
      : real_(options), token_(real_.Insert()) {}
  ~InsertedCard() { [token_ release]; }
  InsertedCard(const InsertedCard &) = delete;
  InsertedCard &operator=(const InsertedCard &) = delete;

  Token *token() { return token_; }
  NSArray *items() { return [[token_ keychainContents] items]; }
  RealCard &real() { return real_; }

 private:
  RealCard real_;
  Token *token_;
};

TEST(CardContents, HoldACertificateAndAKeyForEachCertificate) {
  InsertedCard card({});
  EXPECT_EQ(initialized, 1);
  EXPECT_TRUE([[card.token() instanceID] isEqual:@"4711"]);
  ASSERT_EQ([card.items() count], 4u);
  NSError *error = nil;
  TKTokenKeychainKey *rsa = [[card.token() keychainContents] keyForObjectID:RsaKey() error:&error];
  EXPECT_TRUE([[rsa keyType] isEqual:@"42"]);
  EXPECT_EQ([rsa keySizeInBits], 2048);
  EXPECT_TRUE([rsa canSign]);
  EXPECT_TRUE([rsa canDecrypt]);
  EXPECT_FALSE([rsa canPerformKeyExchange]);
  TKTokenKeychainKey *ec = [[card.token() keychainContents] keyForObjectID:EcKey() error:&error];
  EXPECT_TRUE([[ec keyType] isEqual:@"73"]);
  EXPECT_EQ([ec keySizeInBits], 256);
  EXPECT_TRUE([ec canSign]);
  EXPECT_FALSE([ec canDecrypt]);
  EXPECT_TRUE([ec canPerformKeyExchange]);
}

TEST(CardContents, AreTheCertificatesOnTheCard) {
  InsertedCard card({});
  const unsigned char objectID[] = {1, 1};
  NSError *error = nil;
  TKTokenKeychainCertificate *certificate = [[card.token() keychainContents]
      certificateForObjectID:[NSData dataWithBytes:objectID length:2]
                       error:&error];
  EXPECT_EQ(BytesOf([certificate data]), card.real().card().Read("rsa.der"));
}

TEST(CardContents, OfAnEmptyCardAreNone) {
  InsertedCard card({.empty = true});
  EXPECT_EQ(initialized, 1);
  EXPECT_EQ([card.items() count], 0u);
}

TEST(CardContents, OfTwentyCertificatesAreAll) {
  InsertedCard card({.extra_certificates = 18});
  EXPECT_EQ([card.items() count], 40u);
  EXPECT_EQ([[[card.token() keychainContents] duplicateObjectIDs] count], 0u);
}

TEST(CardContents, EndWithTheTwentiethCertificate) {
  InsertedCard card({.extra_certificates = 23});
  EXPECT_EQ([card.items() count], 40u);
}

TEST(CardContents, GiveACertificateWithoutKeyAKeyItemThatIsGoodForNothing) {
  InsertedCard card({.lone_certificate = true});
  ASSERT_EQ([card.items() count], 6u);
  const unsigned char objectID[] = {2, 0x7f};
  NSError *error = nil;
  TKTokenKeychainKey *key =
      [[card.token() keychainContents] keyForObjectID:[NSData dataWithBytes:objectID length:2]
                                                error:&error];
  EXPECT_NE(key, nil);
}

}  // namespace
}  // namespace endtoend
