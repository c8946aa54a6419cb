// What cards of several kinds publish.
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

// Inserts a card made so, for as long as it lives.
class InsertedCard {
 public:
  explicit InsertedCard(const kelvrin::CardOptions &options, const std::string &adapter_lines = "")
      : real_(options, adapter_lines), token_(real_.Insert()) {}
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
  NSArray *objectIDs = [card.items() valueForKey:@"objectID"];
  EXPECT_EQ([[NSSet setWithArray:objectIDs] count], 40u);
}

TEST(CardContents, EndWithTheTwentiethCertificate) {
  InsertedCard card({.extra_certificates = 23});
  EXPECT_EQ([card.items() count], 40u);
}

TEST(CardContents, LeaveOutAnAuthoritysCertificateWithoutKey) {
  InsertedCard card({.lone_certificate = true});
  EXPECT_EQ([card.items() count], 4u);
}

// What the extension itself makes of such a certificate, when no rule of the adapter's helps.
TEST(CardContents, GiveACertificateWithoutKeyAKeyItemWithTheFlagsOfTheKeyBefore) {
  InsertedCard card({.lone_certificate = true},
                    "rules-off = keyless-certificates, virtual-public-keys\n");
  ASSERT_EQ([card.items() count], 6u);
  const Bytes objectID = {2, 0x7f};
  TKTokenKeychainKey *before = nil;  // of the certificate before; none is as good as no flags
  TKTokenKeychainKey *lone = nil;
  for (NSUInteger i = 1; i < 6 && lone == nil; i += 2) {
    TKTokenKeychainKey *key = [card.items() objectAtIndex:i];
    if (BytesOf([key objectID]) == objectID) {
      lone = key;
    } else {
      before = key;
    }
  }
  ASSERT_NE(lone, nil);
  EXPECT_EQ([lone canSign], [before canSign]);
  EXPECT_EQ([lone canDecrypt], [before canDecrypt]);
  EXPECT_EQ([lone canPerformKeyExchange], [before canPerformKeyExchange]);

  TokenSession *session = MakeSession(card.token());
  NSError *error = nil;
  EXPECT_TRUE(Login(session, card.real().card().pin()));
  EXPECT_EQ(
      Sign(session, Sha256("m"), [lone objectID], kSecKeyAlgorithmECDSASignatureDigestX962, &error),
      nil);
  EXPECT_EQ([error code], -3);
  [session release];
}

}  // namespace
}  // namespace endtoend
