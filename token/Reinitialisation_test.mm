// The module is brought up again, and what the token has then.
#import "token/Reinitialisation.h"

#include "token/testing/replaced_p11.h"
#include "token/testing/session_fixture.h"

// Notes in which order its four values are set, each with the flag `initialized` at that time. The
// list that it is given must outlive it.
@interface NotingToken : Token {
  std::vector<std::string> *_notes;
}
- (void)setNotes:(std::vector<std::string> *)notes;
@end

@implementation NotingToken
- (void)setNotes:(std::vector<std::string> *)notes {
  _notes = notes;
}
- (void)note:(const char *)name {
  _notes->push_back(std::string(name) + " " + std::to_string(initialized));
}
- (void)setModule:(void *)module {
  [self note:"module"];
  [super setModule:module];
}
- (void)setP11:(CK_FUNCTION_LIST *)p11 {
  [self note:"p11"];
  [super setP11:p11];
}
- (void)setSlotID:(CK_SLOT_ID)slotID {
  [self note:"slotID"];
  [super setSlotID:slotID];
}
- (void)setSession:(CK_SESSION_HANDLE)session {
  [self note:"session"];
  [super setSession:session];
}
@end

namespace token_testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReinitialisationTest : public SessionTest {
 protected:
  BOOL Signs(TokenSession *session) {
    @autoreleasepool {
      return [session tokenSession:session
                 supportsOperation:TKTokenOperationSignData
                          usingKey:KeyObjectID(kRsaId)
                         algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)];
    }
  }
  // A token whose set-up found no module.
  Token *TokenWithoutModule() {
    std::filesystem::rename(bundle().ModulePath(kLindelModule), bundle().resources() / "away");
    Token *token = MakeToken();
    std::filesystem::rename(bundle().resources() / "away", bundle().ModulePath(kLindelModule));
    Forget();
    return token;
  }
};

TEST_F(ReinitialisationTest, AnInitialisedTokenIsNotBroughtUpAgain) {
  Signs(session_);
  EXPECT_EQ(lindel().Count(scripted::Function::C_Initialize), 0u);
  EXPECT_EQ(Log().size(), 2u);
}

TEST_F(ReinitialisationTest, ATokenWithoutAModuleGetsTheSecondModuleAndNotTheSetUpsOwn) {
  Token *token = TokenWithoutModule();
  TokenSession *session = MakeSession(token);
  ASSERT_EQ([token module], nullptr);
  ASSERT_EQ(initialized, 0);
  Timeline timeline(vumo());
  EXPECT_TRUE(Signs(session));
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre(
          "default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
          "default: Token ist NICHT initialisiert, Initialisierung starten...",
          "C_GetFunctionList(out)", "default: PKCS11-Modul wurde geladen.", "C_Initialize(NULL)",
          "default: Initialisierung erfolgreich.", "C_GetSlotList(0, NULL[0])",
          "C_GetSlotList(0, room[1])", "default: 1 Slot(s) gefunden.\n", "C_GetSlotInfo(5, out)",
          "default: Kartenlesername 'Kelvrin Reader' gefunden.",
          "C_OpenSession(5, 6, NULL, NULL, out)", "default: Session erfolgreich initialisiert.",
          "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=01})",
          "C_FindObjects(7, room[10], 10)", "C_GetAttributeValue(7, 12, {0x10a[1024]})",
          "C_GetAttributeValue(7, 12, {0x40000600[1024]})", "default: RETURN YES."));
  EXPECT_THAT(Calls(), IsEmpty()) << "the set-up's module is left alone";
  EXPECT_NE([token module], nullptr);
  EXPECT_EQ([token p11], vumo().functions());
  EXPECT_EQ([token slotID], kSlot);
  EXPECT_EQ([token session], kSession);
  EXPECT_EQ(initialized, 1);
}

TEST_F(ReinitialisationTest, TheTokenOwnsTheModuleThatItGotThatWay) {
  Token *token = TokenWithoutModule();
  TokenSession *session = MakeSession(token);
  ASSERT_TRUE(Signs(session));
  Release(session);
  Forget();
  Release(token);
  EXPECT_THAT(vumo().Names(), ElementsAre("C_Finalize"));
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
}

TEST_F(ReinitialisationTest, AModuleThatTheTokenHoldsIsUsedAgain) {
  initialized = 0;
  void *module = [token_ module];
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ(wrapped::calls().dlopen_count, 0u);
  EXPECT_THAT(vumo().Texts(), IsEmpty());
  EXPECT_EQ([token_ module], module);
  EXPECT_EQ([token_ p11], lindel().functions());
  EXPECT_EQ([token_ slotID], kSlot);
  EXPECT_EQ([token_ session], kSession + 1);
  EXPECT_EQ(initialized, 1);
}

TEST_F(ReinitialisationTest, AModuleInitialisedAlreadyIsASuccessAndTheCheckGoesOn) {
  initialized = 0;
  EXPECT_TRUE(Signs(session_));
  EXPECT_THAT(
      Calls(),
      ElementsAre("C_Initialize(NULL)", "C_GetSlotList(0, NULL[0])", "C_GetSlotList(0, room[1])",
                  "C_GetSlotInfo(5, out)", "C_OpenSession(5, 6, NULL, NULL, out)",
                  "C_FindObjectsInit(8, {0x0=0200000000000000, 0x102=01})",
                  "C_FindObjects(8, room[10], 10)", "C_GetAttributeValue(8, 12, {0x10a[1024]})",
                  "C_GetAttributeValue(8, 12, {0x40000600[1024]})"))
      << "the old session is neither closed nor logged out";
  EXPECT_THAT(
      Log(),
      ElementsAre("default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
                  "default: Token ist NICHT initialisiert, Initialisierung starten...",
                  "default: PKCS11 function *** PKCS11-Bibliothek bereits initalisiert. failed: "
                  "rv = CKR_CRYPTOKI_ALREADY_INITIALIZED (0x191)",
                  "default: Initialisierung erfolgreich.", "default: 1 Slot(s) gefunden.\n",
                  "default: Kartenlesername 'Kelvrin Reader' gefunden.",
                  "default: Session erfolgreich initialisiert.", "default: RETURN YES."));
}

TEST_F(ReinitialisationTest, AFinalisedModuleIsInitialisedAgain) {
  initialized = 0;
  card().initialized = false;
  EXPECT_TRUE(Signs(session_));
  EXPECT_TRUE(card().initialized);
  EXPECT_EQ(initialized, 1);
}

TEST_F(ReinitialisationTest, OnlyTheSupportCheckBringsTheModuleUp) {
  initialized = 0;
  NSError *error = nil;
  [session_ tokenSession:session_
                signData:Data({1})
                usingKey:KeyObjectID(kRsaId)
               algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)
                   error:&error];
  EXPECT_EQ(lindel().Count(scripted::Function::C_Initialize), 0u);
  EXPECT_EQ(initialized, 0);
}

TEST_F(ReinitialisationTest, EveryCheckBringsItUpOnlyWhileTheFlagIsClear) {
  initialized = 0;
  Signs(session_);
  Signs(session_);
  EXPECT_EQ(lindel().Count(scripted::Function::C_Initialize), 1u);
  initialized = 2;  // any value but 0
  Signs(session_);
  EXPECT_EQ(lindel().Count(scripted::Function::C_Initialize), 1u);
  EXPECT_EQ(initialized, 2);
}

TEST_F(ReinitialisationTest, TheBringUpIsEnteredWithTheTokensValues) {
  ReplacedP11 replaced;
  CK_FUNCTION_LIST other = {};
  replaced.init = [&](const char *path, void **module, CK_FUNCTION_LIST **p11, CK_SLOT_ID *slot,
                      CK_SESSION_HANDLE *session, const char *reader_name) {
    EXPECT_EQ(path, bundle().ModulePath(kVumoModule));
    EXPECT_STREQ(reader_name, kReaderName);
    EXPECT_EQ(*module, [token_ module]);
    EXPECT_EQ(*p11, [token_ p11]);
    EXPECT_EQ(*slot, kSlot);
    EXPECT_EQ(*session, kSession);
    *module = &other;
    *p11 = &other;
    *slot = 21;
    *session = 22;
    return CK_RV{CKR_OK};
  };
  void *module = [token_ module];
  EXPECT_TRUE(Reinitialise(session_));
  EXPECT_EQ([token_ module], &other);
  EXPECT_EQ([token_ p11], &other);
  EXPECT_EQ([token_ slotID], 21u);
  EXPECT_EQ([token_ session], 22u);
  [token_ setModule:module];
  [token_ setP11:lindel().functions()];
}

TEST_F(ReinitialisationTest, AlreadyInitialisedAsTheResultIsASuccessToo) {
  initialized = 0;
  ReplacedP11 replaced;
  replaced.init = [](const char *, void **, CK_FUNCTION_LIST **, CK_SLOT_ID *slot,
                     CK_SESSION_HANDLE *session, const char *) {
    *slot = 21;
    *session = 22;
    return CK_RV{0x191};
  };
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ(initialized, 1);
  EXPECT_EQ([token_ slotID], 21u);
  EXPECT_EQ([token_ session], 22u);
  EXPECT_EQ(lindel().Count(scripted::Function::C_Finalize), 0u);
}

TEST_F(ReinitialisationTest, TheTokenIsAskedForAtEachReadAndEachStore) {
  CountingSession *session = Session([CountingSession class]);
  EXPECT_TRUE(Reinitialise(session));
  EXPECT_EQ([session tokenReads], 8u);  // four values before the bring-up, four after it
}

// The flag follows the values: it is set after them, and cleared after them too.
TEST_F(ReinitialisationTest, TheValuesAreStoredInThisOrder) {
  std::vector<std::string> notes;
  NotingToken *token = [NotingToken alloc];
  [token setNotes:&notes];
  NSError *error = nil;
  ASSERT_EQ(initialized, 1) << "the set-up before";
  ASSERT_EQ([token initWithSmartCard:smart_card()
                                 AID:AID()
                         tokenDriver:(TKSmartCardTokenDriver *)driver()
                               error:&error],
            token);
  EXPECT_THAT(notes, ElementsAre("module 1", "p11 1", "slotID 1", "session 1",  // cleared first
                                 "module 0", "p11 0", "slotID 0", "session 0"));
  EXPECT_EQ(initialized, 1);

  notes.clear();
  initialized = 0;
  @autoreleasepool {
    EXPECT_TRUE(Reinitialise([[[TokenSession alloc] initWithToken:token] autorelease]));
  }
  EXPECT_THAT(notes, ElementsAre("module 0", "p11 0", "slotID 0", "session 0"));
  EXPECT_EQ(initialized, 1);

  notes.clear();
  [token release];
  EXPECT_THAT(notes, ElementsAre("module 1", "p11 1", "slotID 1", "session 1"));
  EXPECT_EQ(initialized, 0);
}

}  // namespace
}  // namespace token_testing
