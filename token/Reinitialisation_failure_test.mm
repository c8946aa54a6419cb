// The module cannot be brought up again: what is cleaned up, and what stays.
#include "token/testing/replaced_p11.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using scripted::Function;
using testing::ElementsAre;
using testing::IsEmpty;

const char kStart[] = "default: Token ist NICHT initialisiert, Initialisierung starten...";
const char kName[] = "default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw";
const char kReady[] = "default: Initialisierung erfolgreich.";

BOOL Signs(TokenSession *session) {
  return [session tokenSession:session
             supportsOperation:TKTokenOperationSignData
                      usingKey:KeyObjectID(kRsaId)
                     algorithm:Algorithm(kSecKeyAlgorithmRSASignatureRaw)];
}

// The token's set-up succeeded, but the flag is clear: another token was removed.
class HeldModuleTest : public SessionTest {
 protected:
  HeldModuleTest() : module_handle_([token_ module]) {
    initialized = 0;
    card().initialized = false;
  }
  // The handle behind a failed re-initialisation is gone.
  ~HeldModuleTest() override { Disarm(token_); }

  void ExpectFailureThatCleansUp() {
    EXPECT_FALSE(Signs(session_));
    EXPECT_EQ(lindel().Names().back(), "C_Finalize");
    EXPECT_EQ(lindel().At(Function::C_Finalize).Text(), "C_Finalize(NULL)");
    EXPECT_EQ(lindel().Count(Function::C_FindObjectsInit), 0u);
    EXPECT_EQ(lindel().Count(Function::C_CloseSession), 0u);
    EXPECT_EQ(wrapped::calls().dlclose_count, 1u) << "the token's own handle is unloaded";
    EXPECT_EQ(initialized, 0);
    EXPECT_EQ([token_ module], module_handle_);
    EXPECT_EQ([token_ p11], lindel().functions());
    EXPECT_EQ([token_ slotID], kSlot);
    EXPECT_EQ([token_ session], kSession);
  }

  void *module_handle_;
};

TEST_F(HeldModuleTest, FailedInitialisationUnloadsTheTokensModuleAndKeepsItsProperties) {
  lindel().Return(Function::C_Initialize, CKR_HOST_MEMORY);
  Timeline timeline(lindel());
  ExpectFailureThatCleansUp();
  EXPECT_THAT(timeline.Take(),
              ElementsAre(kName, kStart, "C_Initialize(NULL)",
                          "error: PKCS11 function C_Initialize failed: rv = CKR_HOST_MEMORY (0x2)",
                          kInitFailed, "C_Finalize(NULL)", kFinalized, kUnloaded));
}

TEST_F(HeldModuleTest, AModuleWithoutSlotsIsAFailure) {
  card().slots.clear();
  ExpectFailureThatCleansUp();
  EXPECT_THAT(Log(), ElementsAre(kName, kStart, kReady, "error: Keine Slots gefunden.", kInitFailed,
                                 kFinalized, kUnloaded));
}

TEST_F(HeldModuleTest, SeveralSlotsWithoutAReaderNameAreAFailure) {
  card().AddSlot(6, "Another reader");
  bundle().Remove("config.plist");
  ExpectFailureThatCleansUp();
  EXPECT_THAT(Log(), ElementsAre(kName, kStart, kReady, "default: 2 Slot(s) gefunden.\n",
                                 "error: Kartenlesername nicht definiert.", kInitFailed, kFinalized,
                                 kUnloaded));
}

TEST_F(HeldModuleTest, ASessionThatCannotBeOpenedIsAFailure) {
  lindel().Return(Function::C_OpenSession, CKR_TOKEN_NOT_PRESENT);
  ExpectFailureThatCleansUp();
  EXPECT_THAT(
      Log(),
      ElementsAre(kName, kStart, kReady, "default: 1 Slot(s) gefunden.\n",
                  "default: Kartenlesername 'Kelvrin Reader' gefunden.",
                  "error: PKCS11 function C_OpenSession failed: rv = CKR_TOKEN_NOT_PRESENT (0xe0)",
                  "error: Session konnte nicht initialisiert werden.", kInitFailed, kFinalized,
                  kUnloaded));
}

TEST_F(HeldModuleTest, TheResultOfTheFinalisationIsIgnored) {
  lindel().Return(Function::C_Initialize, CKR_HOST_MEMORY);
  lindel().Return(Function::C_Finalize, CKR_DEVICE_ERROR);
  ExpectFailureThatCleansUp();
  EXPECT_EQ(Log().back(), kUnloaded);
  EXPECT_EQ(Log().size(), 6u);
}

TEST_F(HeldModuleTest, WhatTheFailedBringUpLeftIsFinalisedButTheTokensModuleIsUnloaded) {
  ReplacedP11 replaced;
  int other = 0;
  replaced.init = [&](const char *, void **module, CK_FUNCTION_LIST **p11, CK_SLOT_ID *slot,
                      CK_SESSION_HANDLE *session, const char *) {
    *module = &other;
    *p11 = vumo().functions();
    *slot = 21;
    *session = 22;
    return CK_RV{0x902};
  };
  EXPECT_FALSE(Signs(session_));
  EXPECT_THAT(vumo().Texts(), ElementsAre("C_Finalize(NULL)"));
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
  EXPECT_EQ([token_ module], module_handle_);
  EXPECT_EQ([token_ p11], lindel().functions());
  EXPECT_EQ([token_ slotID], kSlot);
  EXPECT_EQ([token_ session], kSession);
}

TEST_F(HeldModuleTest, TheTokenIsAskedForAtEachReadAndForItsModule) {
  lindel().Return(Function::C_Initialize, CKR_HOST_MEMORY);
  CountingSession *session = Session([CountingSession class]);
  EXPECT_FALSE(Signs(session));
  EXPECT_EQ([session tokenReads], 5u);
}

TEST_F(HeldModuleTest, TheNextCheckTriesAgain) {
  lindel().ReturnOnce(Function::C_Initialize, CKR_HOST_MEMORY);
  EXPECT_FALSE(Signs(session_));
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ(initialized, 1);
}

TEST_F(HeldModuleTest, WithTheLogOffTheSameIsCleanedUp) {
  const oslog::Disabled no_default(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_error(OS_LOG_TYPE_ERROR);
  lindel().Return(Function::C_Initialize, CKR_HOST_MEMORY);
  ExpectFailureThatCleansUp();
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
}

// The set-up failed: the token has nothing.
class NoModuleTest : public SessionTest {
 protected:
  NoModuleTest() {
    std::filesystem::rename(bundle().ModulePath(kLindelModule), bundle().resources() / "away");
    bare_ = MakeToken();
    session_ = MakeSession(bare_);
    Forget();
  }
  void ExpectNothingStored() {
    EXPECT_EQ([bare_ module], nullptr);
    EXPECT_EQ([bare_ p11], nullptr);
    EXPECT_EQ([bare_ slotID], 0u);
    EXPECT_EQ([bare_ session], 0u);
    EXPECT_EQ(initialized, 0);
  }

  Token *bare_;
};

TEST_F(NoModuleTest, WithoutTheSecondModuleThereIsNothingToCleanUp) {
  bundle().Remove(std::string(kVumoModule) + ".dylib");
  EXPECT_FALSE(Signs(session_));
  EXPECT_THAT(
      Log(), ElementsAre(kName, kStart, "error: Fehler beim Laden von PKCS11-Modul.", kInitFailed));
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  ExpectNothingStored();
}

TEST_F(NoModuleTest, AMissingModuleIsNoPathAtAll) {
  bundle().Remove(std::string(kVumoModule) + ".dylib");
  bundle().Remove("config.plist");
  ReplacedP11 replaced;
  replaced.init = [](const char *path, void **, CK_FUNCTION_LIST **, CK_SLOT_ID *,
                     CK_SESSION_HANDLE *, const char *reader_name) {
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(reader_name, nullptr);
    return CK_RV{0x900};
  };
  EXPECT_FALSE(Signs(session_));
}

TEST_F(NoModuleTest, AModuleLoadedJustNowIsFinalisedButStaysLoadedThoughTheLogSaysUnloaded) {
  vumo().Return(Function::C_Initialize, CKR_DEVICE_ERROR);
  Timeline timeline(vumo());
  EXPECT_FALSE(Signs(session_));
  EXPECT_THAT(timeline.Take(),
              ElementsAre(kName, kStart, "C_GetFunctionList(out)",
                          "default: PKCS11-Modul wurde geladen.", "C_Initialize(NULL)",
                          "error: PKCS11 function C_Initialize failed: rv = CKR_DEVICE_ERROR "
                          "(0x30)",
                          kInitFailed, "C_Finalize(NULL)", kFinalized, kUnloaded));
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  ExpectNothingStored();
}

TEST_F(NoModuleTest, TheNextCheckLoadsItAgain) {
  vumo().ReturnOnce(Function::C_OpenSession, CKR_DEVICE_ERROR);
  EXPECT_FALSE(Signs(session_));
  ExpectNothingStored();
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ(wrapped::calls().dlopen_count, 2u);
  EXPECT_EQ([bare_ p11], vumo().functions());
  EXPECT_EQ(initialized, 1);
}

TEST_F(NoModuleTest, AFunctionListWithoutAModuleIsFinalisedAndNothingIsUnloaded) {
  bundle().Remove(std::string(kVumoModule) + ".dylib");
  [bare_ setP11:vumo().functions()];
  EXPECT_FALSE(Signs(session_));
  EXPECT_THAT(vumo().Texts(), ElementsAre("C_Finalize(NULL)"));
  EXPECT_EQ(Log().back(), kFinalized);
  Disarm(bare_);
}

TEST_F(NoModuleTest, AModuleWithoutAFunctionListStaysLoadedThoughTheLogSaysUnloaded) {
  ReplacedP11 replaced;
  int other = 0;
  replaced.init = [&other](const char *, void **module, CK_FUNCTION_LIST **, CK_SLOT_ID *slot,
                           CK_SESSION_HANDLE *session, const char *) {
    *module = &other;
    *slot = 21;
    *session = 22;
    return CK_RV{0x900};
  };
  EXPECT_FALSE(Signs(session_));
  EXPECT_THAT(Log(), ElementsAre(kName, kStart, kInitFailed, kUnloaded));
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_THAT(vumo().Names(), IsEmpty());
  ExpectNothingStored();
}

TEST_F(NoModuleTest, WithoutAConfigurationASingleSlotWillDo) {
  bundle().Remove("config.plist");
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ(vumo().Count(Function::C_GetSlotInfo), 0u);
  EXPECT_EQ([bare_ slotID], kSlot);
}

TEST_F(NoModuleTest, TheReaderNameChoosesTheSlot) {
  vumo().card().AddSlot(6, "Another reader");
  bundle().SetReaderName("Another");
  EXPECT_TRUE(Signs(session_));
  EXPECT_EQ([bare_ slotID], 6u);
}

}  // namespace
}  // namespace token_testing
