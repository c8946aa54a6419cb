// The keychain items of a card whose reading succeeds.
#import "token/CardItems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "token/ObjectId.h"
#include "token/testing/card_items_fixture.h"

namespace {

using scripted::Bytes;
using scripted::Function;
using testing::ElementsAre;
using testing::IsEmpty;
using token_testing::BytesOf;
using token_testing::Constraints;
using token_testing::KeyKind;
using token_testing::Text;

class CardItemsTest : public testing::Test, protected token_testing::CardItemsFixture {};

TEST_F(CardItemsTest, CertificateSearchOnTheSessionComesFirstAndIsLeftOpen) {
  NSArray *items = MakeItems();
  ASSERT_NE(items, nil) << "a card without certificates has an empty array";
  EXPECT_EQ([items count], 0u);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_FindObjectsInit(7, {0x0=0100000000000000})",
                                           "C_FindObjects(7, room[20], 20)"));
  EXPECT_THAT(Log(),
              ElementsAre("default: Zertifikate gefunden: Anzahl 0", "default: \nZertifikate:\n"));
}

TEST_F(CardItemsTest, CertificateCostsEightCalls) {
  AddCertificateAndKey({1});
  MakeItems();
  EXPECT_THAT(
      module_.Texts(),
      ElementsAre("C_FindObjectsInit(7, {0x0=0100000000000000})", "C_FindObjects(7, room[20], 20)",
                  "C_GetAttributeValue(7, 11, {0x3[1024], 0x102[1024], 0x11[4096]})",
                  "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=01})",
                  "C_FindObjects(7, room[10], 10)", "C_GetAttributeValue(7, 12, {0x3[2048]})",
                  "C_GetAttributeValue(7, 12, {0x10a[1024]})",
                  "C_GetAttributeValue(7, 12, {0x104[1024]})",
                  "C_GetAttributeValue(7, 12, {0x106[1024]})",
                  "C_GetAttributeValue(7, 12, {0x10c[1024]})"));
  EXPECT_THAT(Log(),
              ElementsAre("default: Zertifikate gefunden: Anzahl 1", "default: \nZertifikate:\n",
                          "default: CertID: 0x0B, ", "default: keySign YES.",
                          "default: keyDecipher NO.", "default: keyAgreement NO."));
}

TEST_F(CardItemsTest, SearchesAreNeverFinished) {
  AddCertificateAndKey({1});
  AddCertificateAndKey({2});
  MakeItems();
  EXPECT_EQ(module_.Count(Function::C_FindObjectsInit), 3u);
  EXPECT_EQ(module_.Count(Function::C_FindObjectsFinal), 0u);
}

TEST_F(CardItemsTest, EachCertificateIsFollowedByItsKeyInTheOrderOfTheHandles) {
  for (const Bytes &id : {Bytes{9}, Bytes{3}, Bytes{7}}) AddCertificateAndKey(id);
  NSArray *items = MakeItems();
  ASSERT_EQ([items count], 6u);
  EXPECT_THAT(ObjectIds(items), ElementsAre(Bytes{1, 9}, Bytes{2, 9}, Bytes{1, 3}, Bytes{2, 3},
                                            Bytes{1, 7}, Bytes{2, 7}));
  for (NSUInteger i = 0; i < 6; ++i) {
    EXPECT_EQ([[items objectAtIndex:i] class],
              i % 2 == 0 ? [TKTokenKeychainCertificate class] : [TKTokenKeychainKey class]);
  }
}

TEST_F(CardItemsTest, ArrayBelongsToTheCaller) {
  NSArray *items = nil;
  @autoreleasepool {
    items = Copy();
  }
  EXPECT_EQ([items retainCount], 1u);
  [items release];
}

TEST_F(CardItemsTest, ItemsBelongToTheArrayAlone) {
  AddCertificateAndKey({1});
  NSArray *items = nil;
  @autoreleasepool {
    items = Copy();
  }
  for (TKTokenKeychainItem *item in items) EXPECT_EQ([item retainCount], 1u);
  [items release];
}

TEST_F(CardItemsTest, CertificateItemHoldsTheEncoding) {
  AddCertificateAndKey({1});
  TKTokenKeychainCertificate *item = [MakeItems() objectAtIndex:0];
  EXPECT_EQ(BytesOf([item data]), Der());
}

TEST_F(CardItemsTest, CertificateItemGetsNoConstraints) {
  AddCertificateAndKey({1}).SetFlag(CKA_ENCRYPT, true).SetFlag(CKA_DERIVE, true);
  NSArray *items = MakeItems();
  // What it has is what the platform gives it: reading is always allowed.
  EXPECT_EQ(Constraints([items objectAtIndex:0]),
            "1=" + Text([[NSNumber numberWithBool:YES] description]));
  EXPECT_EQ(Constraints([items objectAtIndex:1]), "2=PIN 3=PIN 4=PIN");
}

TEST_F(CardItemsTest, KeyItemComesFromTheSameCertificate) {
  card_.AddCertificate({1}, "a", token_testing::CertificateDer(KeyKind::kRsa, "R"));
  card_.AddPublicKey({1});
  AddCertificateAndKey({2});
  NSArray *items = MakeItems();
  EXPECT_EQ([[items objectAtIndex:1] keySizeInBits], 2048);
  EXPECT_EQ([[items objectAtIndex:3] keySizeInBits], 256);
}

TEST_F(CardItemsTest, CertificateIsNamedByItsLabelAndTheKeyByThePublicKeys) {
  AddCertificateAndKey({1}, "Certificate").SetText(CKA_LABEL, "Key");
  card_.AddPrivateKey({1}).SetText(CKA_LABEL, "Private");
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("Certificate (Subject)", "Key (Subject)"));
}

TEST_F(CardItemsTest, NamesStandAloneWhereThePlatformGivesNoLabel) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}, "Certificate").SetText(CKA_LABEL, "Key");
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("Certificate", "Key"));
}

TEST_F(CardItemsTest, EmptyLabelsGiveEmptyNames) {
  AddCertificateAndKey({1}, "").SetText(CKA_LABEL, "");
  EXPECT_THAT(Labels(MakeItems()), ElementsAre(" (Subject)", " (Subject)"));
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("", ""));
}

TEST_F(CardItemsTest, ShortLabelAfterALongOneHasNothingOfIt) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1, 2, 3, 4}, "A long label").SetText(CKA_LABEL, "A long key label");
  AddCertificateAndKey({5}, "B").SetText(CKA_LABEL, "C");
  NSArray *items = MakeItems();
  EXPECT_THAT(Labels(items), ElementsAre("A long label", "A long key label", "B", "C"));
  EXPECT_THAT(ObjectIds(items),
              ElementsAre(Bytes{1, 1, 2, 3, 4}, Bytes{2, 1, 2, 3, 4}, Bytes{1, 5}, Bytes{2, 5}));
}

TEST_F(CardItemsTest, NulEndsALabel) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}, std::string("one\0two", 7))
      .SetText(CKA_LABEL, std::string("key\0two", 7));
  EXPECT_THAT(Labels(MakeItems()), ElementsAre("one", "key"));
}

TEST_F(CardItemsTest, KeyLabelIsCutAt127Bytes) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}).SetText(CKA_LABEL, std::string(200, 'k'));
  EXPECT_EQ(Labels(MakeItems())[1], std::string(127, 'k'));
}

// The certificate's record is not clamped, deliberately: what is left of a long label behind the ID
// belongs to the name.
TEST_F(CardItemsTest, CertificateLabelLongerThanItsFieldRunsOnIntoTheId) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({'#'}, std::string(600, 'c'));
  NSArray *items = MakeItems();
  EXPECT_EQ(Labels(items)[0], std::string(512, 'c') + "#" + std::string(87, 'c'));
  EXPECT_EQ(ObjectIds(items)[0], (Bytes{1, '#'}));
}

TEST_F(CardItemsTest, IdLongerThanItsFieldRunsOnIntoWhatLiesBehind) {
  const Bytes id(600, 0x42);
  card_.AddCertificate(id, "Long ID", Der());
  NSArray *items = MakeItems();
  Bytes expected(1 + 512, 0x42);
  expected[0] = kObjectKindCertificate;
  expected.insert(expected.end(), {0x58, 0x02, 0, 0, 0, 0, 0, 0});  // the length, 600
  expected.insert(expected.end(), Der().begin(), Der().begin() + 600 - 520);
  EXPECT_EQ(ObjectIds(items)[0], expected);
}

TEST_F(CardItemsTest, EmptyIdGivesObjectIdsOfTheKindAlone) {
  AddCertificateAndKey({});
  EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1}, Bytes{2}));
  EXPECT_EQ(module_.At(Function::C_FindObjectsInit, 1).Text(),
            "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=})");
}

TEST_F(CardItemsTest, FirstOfSeveralPublicKeysCounts) {
  [TKTokenKeychainItem setLabelsFromSubject:NO];
  AddCertificateAndKey({1}).SetText(CKA_LABEL, "First");
  card_.AddPublicKey({1}).SetText(CKA_LABEL, "Second");
  EXPECT_EQ(Labels(MakeItems())[1], "First");
}

TEST_F(CardItemsTest, CertificatesWithOneIdAreAllKept) {
  AddCertificateAndKey({1});
  card_.AddCertificate({1}, "Twin", Der());
  EXPECT_THAT(ObjectIds(MakeItems()),
              ElementsAre(Bytes{1, 1}, Bytes{2, 1}, Bytes{1, 1}, Bytes{2, 1}));
}

TEST_F(CardItemsTest, HandleIsLoggedAs32BitsInHexadecimal) {
  card_.next_object = 0x1000000ABUL;
  AddCertificateAndKey({1});
  card_.next_object = 0xABCDE;
  AddCertificateAndKey({2});
  MakeItems();
  EXPECT_THAT(Log(), testing::Contains("default: CertID: 0xAB, "));
  EXPECT_THAT(Log(), testing::Contains("default: CertID: 0xABCDE, "));
}

TEST_F(CardItemsTest, LogHidesNothing) {
  AddCertificateAndKey({1});
  MakeItems();
  EXPECT_EQ(recorder_.typed_texts(oslog::ShowPrivate::kNo), Log());
}

TEST_F(CardItemsTest, WithoutTheLogTheItemsAreTheSame) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  AddCertificateAndKey({1});
  EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1, 1}, Bytes{2, 1}));
  EXPECT_THAT(Log(), IsEmpty());
}

// --- How many certificates are read ---

TEST_F(CardItemsTest, TwentyCertificatesAreAllRead) {
  AddCertificates(20);
  EXPECT_EQ([MakeItems() count], 40u);
  EXPECT_EQ(module_.calls().size(), 2u + 8 * 20);
}

TEST_F(CardItemsTest, OnlyTheFirstTwentyOf25CertificatesAreRead) {
  AddCertificates(25);
  NSArray *items = MakeItems();
  ASSERT_EQ([items count], 40u);
  EXPECT_EQ(ObjectIds(items)[39], (Bytes{2, 20}));
  EXPECT_EQ(module_.calls().size(), 2u + 8 * 20);
  EXPECT_EQ(Log()[0], "default: Zertifikate gefunden: Anzahl 20");
}

TEST_F(CardItemsTest, CountBeyondTheTwentyHandlesIsLoggedAs32BitsButNotFollowed) {
  AddCertificates(20);
  const std::pair<CK_ULONG, const char *> kCounts[] = {
      {21, "21"}, {0x100000003UL, "3"}, {static_cast<CK_ULONG>(-1), "-1"}};
  for (const auto &[count, shown] : kCounts) {
    recorder_.clear();
    card_.claimed_found = count;
    EXPECT_EQ([MakeItems() count], 40u);
    EXPECT_EQ(Log()[0], std::string("default: Zertifikate gefunden: Anzahl ") + shown);
  }
}

TEST_F(CardItemsTest, SmallerCountHidesCertificates) {
  AddCertificates(3);
  card_.claimed_found = 1;
  EXPECT_THAT(ObjectIds(MakeItems()), ElementsAre(Bytes{1, 1}, Bytes{2, 1}));
}

}  // namespace
