// A token whose set-up succeeds.
#import "token/Token.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "token/TokenDriver.h"
#include "token/testing/card_fixture.h"
#include "token/testing/replaced_method.h"
#include "token/testing/timeline.h"

namespace {

using scripted::Function;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using token_testing::BytesOf;
using token_testing::ErrorLine;
using token_testing::kSession;
using token_testing::kSlot;
using token_testing::StandardOutputOf;
using token_testing::Text;
using token_testing::Timeline;

class TokenTest : public testing::Test, protected token_testing::TokenFixture {};

TEST_F(TokenTest, IsASmartCardTokenAndItsOwnDelegate) {
  EXPECT_EQ([Token superclass], [TKSmartCardToken class]);
  EXPECT_TRUE([Token conformsToProtocol:NSProtocolFromString(@"TKTokenDelegate")]);
  Token *token = MakeToken();
  EXPECT_EQ([token delegate], token);
}

TEST_F(TokenTest, MethodsStandInTheirOrder) {
  unsigned int count = 0;
  Method *methods = class_copyMethodList([Token class], &count);
  std::vector<std::string> names;
  for (unsigned int i = 0; i < count; ++i) names.push_back(sel_getName(method_getName(methods[i])));
  free(methods);
  EXPECT_THAT(names,
              ElementsAre("initWithSmartCard:AID:tokenDriver:error:", "dealloc",
                          "token:createSessionWithError:", "driver", "module", "setModule:", "p11",
                          "setP11:", "slotID", "setSlotID:", "session", "setSession:"));
}

TEST_F(TokenTest, DriverPropertyIsNeverAssignedAndHasNoSetter) {
  Token *token = MakeToken();
  EXPECT_EQ([token driver], nil);
  EXPECT_EQ([token tokenDriver], driver());
  EXPECT_FALSE([token respondsToSelector:@selector(setDriver:)]);
}

TEST_F(TokenTest, PlainPropertiesHoldWhatTheyAreGiven) {
  Token *token = [[Token alloc] autorelease];
  CK_FUNCTION_LIST list = {};
  [token setModule:&list];
  [token setP11:&list];
  [token setSlotID:static_cast<CK_SLOT_ID>(-1)];
  [token setSession:static_cast<CK_SESSION_HANDLE>(-2)];
  EXPECT_EQ([token module], &list);
  EXPECT_EQ([token p11], &list);
  EXPECT_EQ([token slotID], static_cast<CK_SLOT_ID>(-1));
  EXPECT_EQ([token session], static_cast<CK_SESSION_HANDLE>(-2));
  Disarm(token);
}

TEST_F(TokenTest, SetUpTakesItsStepsInOrder) {
  Timeline timeline(lindel());
  MakeToken();
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre("default: ", "C_GetFunctionList(out)", "default: PKCS11-Modul wurde geladen.",
                  "C_Initialize(NULL)", "default: Initialisierung erfolgreich.",
                  "C_GetSlotList(0, NULL[0])", "C_GetSlotList(0, room[1])",
                  "default: 1 Slot(s) gefunden.\n", "C_GetSlotInfo(5, out)",
                  "default: Kartenlesername 'Kelvrin Reader' gefunden.",
                  "C_OpenSession(5, 6, NULL, NULL, out)",
                  "default: Session erfolgreich initialisiert.", "C_GetTokenInfo(5, out)",
                  "default: instanceID:  4711", "C_FindObjectsInit(7, {0x0=0100000000000000})",
                  "C_FindObjects(7, room[20], 20)", "default: Zertifikate gefunden: Anzahl 2",
                  "default: \nZertifikate:\n",
                  // the RSA certificate
                  "default: CertID: 0x0B, ",
                  "C_GetAttributeValue(7, 11, {0x3[1024], 0x102[1024], 0x11[4096]})",
                  "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=01})",
                  "C_FindObjects(7, room[10], 10)", "C_GetAttributeValue(7, 12, {0x3[2048]})",
                  "C_GetAttributeValue(7, 12, {0x10a[1024]})", "default: keySign YES.",
                  "C_GetAttributeValue(7, 12, {0x104[1024]})",
                  "C_GetAttributeValue(7, 12, {0x106[1024]})", "default: keyDecipher YES.",
                  "C_GetAttributeValue(7, 12, {0x10c[1024]})", "default: keyAgreement NO.",
                  // the EC certificate
                  "default: CertID: 0x0E, ",
                  "C_GetAttributeValue(7, 14, {0x3[1024], 0x102[1024], 0x11[4096]})",
                  "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=02})",
                  "C_FindObjects(7, room[10], 10)", "C_GetAttributeValue(7, 15, {0x3[2048]})",
                  "C_GetAttributeValue(7, 15, {0x10a[1024]})", "default: keySign YES.",
                  "C_GetAttributeValue(7, 15, {0x104[1024]})",
                  "C_GetAttributeValue(7, 15, {0x106[1024]})", "default: keyDecipher NO.",
                  "C_GetAttributeValue(7, 15, {0x10c[1024]})", "default: keyAgreement YES."));
}

TEST_F(TokenTest, KeySearchesReportOnStandardOutput) {
  MakeToken();
  const std::string search =
      "Öffentlichen Schlüssel suchen...\nulMaxCount 1\nÖffentlichen Schlüssel gefunden.\n";
  EXPECT_EQ(standard_output(), search + search);
}

TEST_F(TokenTest, PropertiesHoldTheBringUpAndTheFlagIsSet) {
  wrapped::Reset();
  Token *token = MakeToken();
  EXPECT_EQ([token p11], lindel().functions());
  EXPECT_EQ([token slotID], kSlot);
  EXPECT_EQ([token session], kSession);
  ASSERT_NE([token module], nullptr);
  EXPECT_EQ([token module], wrapped::calls().callocs[0].address);  // the module handle
  EXPECT_FALSE(wrapped::calls().callocs[0].freed);
  EXPECT_EQ(initialized, 1);
}

TEST_F(TokenTest, SetUpLoadsTheLindelModuleAlone) {
  MakeToken();
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
  EXPECT_THAT(vumo().Names(), IsEmpty());
}

TEST_F(TokenTest, SuperclassGetsCardAidInstanceIdAndDriver) {
  static struct {
    id smart_card, AID, instance_id, driver;
  } given;
  static IMP original = nullptr;
  const token_testing::ReplacedMethod replaced(
      [TKSmartCardToken class], @selector(initWithSmartCard:AID:instanceID:tokenDriver:),
      reinterpret_cast<IMP>(
          +[](id self, SEL command, id smart_card, id AID, id instance_id, id driver) -> id {
            given = {smart_card, AID, [[instance_id retain] autorelease], driver};
            return reinterpret_cast<id (*)(id, SEL, id, id, id, id)>(original)(
                self, command, smart_card, AID, instance_id, driver);
          }));
  original = replaced.original();
  NSError *error = nil;
  StandardOutputOf([&] {
    [[[Token alloc] initWithSmartCard:smart_card() AID:AID() tokenDriver:driver()
                                error:&error] autorelease];
  });
  EXPECT_EQ(given.smart_card, smart_card());
  EXPECT_EQ(given.AID, AID());
  EXPECT_EQ(Text(given.instance_id), "4711");
  EXPECT_EQ(given.driver, driver());
}

TEST_F(TokenTest, KeychainContentsAreTheCardsItems) {
  Token *token = MakeToken();
  std::vector<std::string> labels;
  std::vector<scripted::Bytes> ids;
  for (TKTokenKeychainItem *item in [[token keychainContents] items]) {
    labels.push_back(Text([item label]));
    ids.push_back(BytesOf([item objectID]));
  }
  EXPECT_THAT(labels, ElementsAre("RSA certificate (Rita Rsa)", "RSA key (Rita Rsa)",
                                  "EC certificate (Elli Ec)", "EC key (Elli Ec)"));
  EXPECT_THAT(ids, ElementsAre(scripted::Bytes{1, 1}, scripted::Bytes{2, 1}, scripted::Bytes{1, 2},
                               scripted::Bytes{2, 2}));
}

TEST_F(TokenTest, CardWithoutCertificatesIsAGoodToken) {
  lindel().Reset();
  token_testing::AddEmptyCard(&card());
  Token *token = MakeToken();
  EXPECT_EQ(Text([token instanceID]), "4711");
  ASSERT_NE([[token keychainContents] items], nil);
  EXPECT_EQ([[[token keychainContents] items] count], 0u);
  EXPECT_EQ([token session], kSession);
  EXPECT_EQ(initialized, 1);
}

TEST_F(TokenTest, ItemsOfTheKeychainBelongToItAlone) {
  Token *token = MakeToken();
  @autoreleasepool {
    for (TKTokenKeychainItem *item in [[token keychainContents] items]) [item label];
  }
  TKTokenKeychainItem *item = nil;
  @autoreleasepool {
    item = [[[token keychainContents] items] objectAtIndex:0];
  }
  EXPECT_EQ([item retainCount], 1u);
}

TEST_F(TokenTest, WithoutTheLogTheSetUpIsTheSame) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  Token *token = MakeToken();
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(Text([token instanceID]), "4711");
  EXPECT_EQ([[[token keychainContents] items] count], 4u);
  EXPECT_EQ(lindel().calls().size(), 9u + 2 * 8);
}

TEST_F(TokenTest, LogHidesNothing) {
  MakeToken();
  EXPECT_EQ(recorder().typed_texts(oslog::ShowPrivate::kNo), Log());
}

// --- Instance ID ---

TEST_F(TokenTest, InstanceIdIsTheFirstWordOfTheTokenLabelAndAtMost31Characters) {
  const std::pair<std::string, const char *> kLabels[] = {
      {"Karte\tNr", "Karte"},
      {"0123456789012345678901234567890123456789", "0123456789012345678901234567890"},
      {std::string("47\0"
                   "11",
                   5),
       "47"},
      {" 4711", ""}};
  for (const auto &[label, id] : kLabels) {
    card().slots[0].label = label;
    EXPECT_EQ(Text([MakeToken() instanceID]), id);
    EXPECT_THAT(Log(), Contains(std::string("default: instanceID:  ") + id));
  }
}

TEST_F(TokenTest, CardNumberThatIsNotAsciiGivesAnEmptyInstanceId) {
  card().slots[0].label = "47\xC3\xBC"
                          "11";
  EXPECT_EQ(Text([MakeToken() instanceID]), "");
  EXPECT_THAT(Log(), Contains("default: instanceID:  "));
  EXPECT_EQ(initialized, 1);
}

TEST_F(TokenTest, CardNumberThatCannotBeReadGivesAnEmptyInstanceIdAndGoesOn) {
  lindel().Return(Function::C_GetTokenInfo, CKR_DEVICE_ERROR);
  Token *token = MakeToken();
  EXPECT_EQ(Text([token instanceID]), "");
  EXPECT_EQ([[[token keychainContents] items] count], 4u);
  EXPECT_EQ(initialized, 1);
  const std::vector<std::string> log = Log();
  const auto line = std::ranges::find(
      log, ErrorLine("Kartennummer kann nicht ermittelt werden.", "CKR_DEVICE_ERROR (0x30)"));
  ASSERT_GE(log.end() - line, 2);
  EXPECT_EQ(line[-1], ErrorLine("C_GetTokenInfo", "CKR_DEVICE_ERROR (0x30)"));
  EXPECT_EQ(line[1], "default: instanceID:  ");
}

// --- Configuration ---

TEST_F(TokenTest, SlotOfTheConfiguredReaderIsTaken) {
  card().slots.clear();
  card().AddSlot(3, "Other Reader", "1");
  card().AddSlot(4, "Kelvrin Reader 00", "2");
  card().AddSlot(6, "Kelvrin Reader 01", "3");
  Token *token = MakeToken();
  EXPECT_EQ([token slotID], 4u);
  EXPECT_EQ(Text([token instanceID]), "2");
}

TEST_F(TokenTest, ReaderNameIsComparedAsUtf8) {
  bundle().SetReaderName("Müller");
  card().slots.clear();
  card().AddSlot(3, "Reader M\xC3\xBCller", "1");
  card().AddSlot(4, "Other", "2");
  EXPECT_EQ([MakeToken() slotID], 3u);
}

TEST_F(TokenTest, OneSlotNeedsNoConfiguration) {
  for (int way = 0; way < 3; ++way) {
    if (way == 0) bundle().Remove("config.plist");
    if (way == 1) bundle().SetConfiguration("<dict/>");
    if (way == 2) bundle().SetConfiguration("<dict><key>readerName</key><true/></dict>");
    lindel().ForgetCalls();
    Token *token = MakeToken();
    EXPECT_EQ([token slotID], kSlot) << way;
    EXPECT_EQ(lindel().Count(Function::C_GetSlotInfo), 0u) << way;  // no search
    Release(token);
  }
}

TEST_F(TokenTest, ModuleThatIsInitialisedAlreadyIsASuccess) {
  lindel().Return(Function::C_Initialize, CKR_CRYPTOKI_ALREADY_INITIALIZED);
  Token *token = MakeToken();
  EXPECT_EQ([token p11], lindel().functions());
  EXPECT_EQ(initialized, 1);
  EXPECT_THAT(Log(), Contains("default: PKCS11 function *** PKCS11-Bibliothek bereits "
                              "initalisiert. failed: rv = CKR_CRYPTOKI_ALREADY_INITIALIZED "
                              "(0x191)"));
  EXPECT_THAT(Log(), Not(Contains("error: Fehler beim Initialisieren.")));
}

}  // namespace
