// What cards of several kinds publish.
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

// A card made so, inserted.
class CardOnTest {
 public:
  explicit CardOnTest(const kelvrin::CardOptions &options = {},
                      const std::string &adapter_lines = "")
      : real_(options, adapter_lines), card_(real_.bundle()) {}

  Token *token() const { return card_.token(); }
  TokenSession *session() const { return card_.session(); }
  TKTokenKeychainContents *contents() const { return [card_.token() keychainContents]; }
  NSArray *items() const { return [contents() items]; }
  const kelvrin::SoftHsmCard &made() const { return real_.card(); }

 private:
  RealCard real_;
  Inserted card_;
};

// What an item says that a key can do.
struct Capabilities {
  explicit Capabilities(TKTokenKeychainKey *key)
      : sign([key canSign]), decrypt([key canDecrypt]), exchange([key canPerformKeyExchange]) {}
  Capabilities(BOOL may_sign, BOOL may_decrypt, BOOL may_exchange)
      : sign(may_sign), decrypt(may_decrypt), exchange(may_exchange) {}
  bool operator==(const Capabilities &) const = default;

  BOOL sign, decrypt, exchange;
};

TEST(CardContents, TellKindSizeAndCapabilitiesOfEachKey) {
  const CardOnTest card;
  EXPECT_TRUE([[card.token() instanceID] isEqual:@"4711"]);
  const struct {
    NSData *key;
    NSString *type;
    NSInteger bits;
    Capabilities capabilities;
  } rows[] = {{RsaKey(), @"42", 2048, {YES, YES, NO}}, {EcKey(), @"73", 256, {YES, NO, YES}}};
  for (const auto &row : rows) {
    TKTokenKeychainKey *key = [card.contents() keyForObjectID:row.key error:nullptr];
    EXPECT_TRUE([[key keyType] isEqual:row.type]);
    EXPECT_EQ([key keySizeInBits], row.bits);
    EXPECT_EQ(Capabilities(key), row.capabilities);
  }
}

TEST(CardContents, AreTheCertificatesOnTheCard) {
  const CardOnTest card;
  TKTokenKeychainCertificate *certificate = [card.contents() certificateForObjectID:ToData({1, 1})
                                                                              error:nullptr];
  EXPECT_EQ(ToBytes([certificate data]), card.made().Read("rsa.der"));
}

TEST(CardContents, AreTheFirstTwentyCertificatesThatHaveAKeyEachWithItsKey) {
  const struct {
    const char *name;
    kelvrin::CardOptions options;
    NSUInteger certificates;
  } rows[] = {{"two", {}, 2},
              {"none", {.empty = true}, 0},
              {"twenty", {.extra_certificates = 18}, 20},
              {"more than twenty", {.extra_certificates = 23}, 20},
              {"an authority's without key", {.lone_certificate = true}, 2}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const CardOnTest card(row.options);
    @autoreleasepool {
      EXPECT_EQ(initialized, 1);
      EXPECT_EQ([card.items() count], 2 * row.certificates);
      NSSet *objectIDs = [NSSet setWithArray:[card.items() valueForKey:@"objectID"]];
      EXPECT_EQ([objectIDs count], 2 * row.certificates);
      EXPECT_FALSE([objectIDs containsObject:ToData({1, 0x7f})]);
    }
  }
}

// What the extension itself makes of such a certificate, when no rule of the adapter's helps.
TEST(CardContents, GiveACertificateWithoutKeyAKeyItemWithTheFlagsOfTheKeyBefore) {
  const CardOnTest card({.lone_certificate = true},
                        "rules-off = keyless-certificates, virtual-public-keys\n");
  ASSERT_EQ([card.items() count], 6u);
  TKTokenKeychainKey *before = nil;  // of the certificate before; none is as good as no flags
  TKTokenKeychainKey *lone = nil;
  for (NSUInteger i = 1; i < 6 && lone == nil; i += 2) {
    TKTokenKeychainKey *key = [card.items() objectAtIndex:i];
    ([[key objectID] isEqual:ToData({2, 0x7f})] ? lone : before) = key;
  }
  ASSERT_NE(lone, nil);
  EXPECT_EQ(Capabilities(lone), Capabilities(before));

  NSError *error = nil;
  EXPECT_TRUE(Login(card.session(), card.made().pin()));
  EXPECT_EQ(Sign(card.session(), Bytes(32), [lone objectID],
                 kSecKeyAlgorithmECDSASignatureDigestX962, &error),
            nil);
  EXPECT_EQ([error code], -3);
}

}  // namespace
}  // namespace endtoend
