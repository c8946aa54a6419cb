// Set-ups that fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#include "token/testing/card_fixture.h"
#include "token/testing/timeline.h"

namespace {

using scripted::Function;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using token_testing::ErrorLine;
using token_testing::kFinalized;
using token_testing::kInitFailed;
using token_testing::kUnloaded;
using token_testing::StandardOutputOf;
using token_testing::Timeline;

// One way to fail once the module is loaded.
struct Failure {
  const char *name;
  Function function;
  size_t call;  // 1 is the first
  CK_RV result;
  std::vector<std::string> lines;  // of the log, from the failed call on, before the clean-up
};

void PrintTo(const Failure &failure, std::ostream *out) { *out << failure.name; }

class TokenFailureTest : public testing::Test, protected token_testing::TokenFixture {
 protected:
  // The token came back as it was allocated: the superclass's initialiser never ran.
  static void ExpectNotSetUp(Token *token) {
    ASSERT_NE(token, nil);
    EXPECT_EQ([token module], nullptr);
    EXPECT_EQ([token p11], nullptr);
    EXPECT_EQ([token slotID], 0u);
    EXPECT_EQ([token session], 0u);
    EXPECT_EQ([token instanceID], nil);
    EXPECT_EQ([token AID], nil);
    EXPECT_EQ([token tokenDriver], nil);
    EXPECT_EQ([token delegate], nil);
    EXPECT_EQ([token keychainContents], nil);
    EXPECT_EQ(initialized, 0);
  }

  // An allocated token whose properties, like the flag, hold something already.
  Token *UsedToken() {
    Token *token = [Token alloc];
    [token setModule:token];
    [token setP11:vumo().functions()];
    [token setSlotID:1];
    [token setSession:2];
    initialized = 1;
    return token;
  }
  // The set-up of an allocated token.
  Token *Initialise(Token *token, NSError **error) {
    StandardOutputOf([&] {
      token = [token initWithSmartCard:smart_card() AID:AID() tokenDriver:driver() error:error];
    });
    return token;
  }

  static void ExpectNothingClosed(const scripted::ScriptedModule &module) {
    EXPECT_THAT(module.Names(), Not(Contains(AnyOf("C_CloseSession", "C_CloseAllSessions",
                                                   "C_Logout", "C_FindObjectsFinal"))));
  }
};

class LoadedModuleFailureTest : public TokenFailureTest,
                                public testing::WithParamInterface<Failure> {};

TEST_P(LoadedModuleFailureTest, ReturnsTheReceiverAndFinalizesButKeepsTheModuleLoaded) {
  const Failure &failure = GetParam();
  lindel().ReturnAt(failure.function, failure.call, failure.result);
  wrapped::Reset();
  Token *allocated = [Token alloc];
  Token *token = nil;
  NSError *error = (NSError *)@"untouched";
  std::vector<std::string> events;
  {
    Timeline timeline(lindel());
    token = Initialise(allocated, &error);
    events = timeline.Take();
  }
  EXPECT_EQ(token, allocated);
  EXPECT_EQ([token retainCount], 1u);
  ExpectNotSetUp(token);
  EXPECT_EQ(error, (NSError *)@"untouched");

  std::vector<std::string> end = failure.lines;
  end.insert(end.end(), {"C_Finalize(NULL)", kFinalized, kUnloaded});
  ASSERT_GE(events.size(), end.size());
  EXPECT_EQ(std::vector(events.end() - static_cast<ptrdiff_t>(end.size()), events.end()), end);
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
  // The handle handed to the unloading is the token's null one, deliberately.
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_FALSE(wrapped::calls().callocs[0].freed);
  ExpectNothingClosed(lindel());
  [token release];
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LoadedModuleFailureTest,
    testing::Values(
        Failure{"Initialize",
                Function::C_Initialize,
                1,
                CKR_GENERAL_ERROR,
                {ErrorLine("C_Initialize", "CKR_GENERAL_ERROR (0x5)"), kInitFailed}},
        Failure{"OpenSession",
                Function::C_OpenSession,
                1,
                CKR_TOKEN_NOT_PRESENT,
                {ErrorLine("C_OpenSession", "CKR_TOKEN_NOT_PRESENT (0xe0)"),
                 "error: Session konnte nicht initialisiert werden.", kInitFailed}},
        Failure{"CertificateSearchInit",
                Function::C_FindObjectsInit,
                1,
                CKR_OPERATION_ACTIVE,
                {ErrorLine("C_FindObjectsInit: CKO_CERTIFICATE", "CKR_OPERATION_ACTIVE (0x90)")}},
        Failure{"CertificateSearch",
                Function::C_FindObjects,
                1,
                CKR_DEVICE_ERROR,
                {ErrorLine("C_FindObjects: CKO_CERTIFICATE", "CKR_DEVICE_ERROR (0x30)")}},
        Failure{"FirstCertificate",
                Function::C_GetAttributeValue,
                1,
                CKR_DEVICE_REMOVED,
                {ErrorLine("C_GetAttributeValue: cert_info", "CKR_DEVICE_REMOVED (0x32)"),
                 ErrorLine("get_cert_info", "CKR_DEVICE_REMOVED (0x32)")}},
        Failure{"SecondCertificate",
                Function::C_GetAttributeValue,
                7,
                CKR_DEVICE_REMOVED,
                {ErrorLine("C_GetAttributeValue: cert_info", "CKR_DEVICE_REMOVED (0x32)"),
                 ErrorLine("get_cert_info", "CKR_DEVICE_REMOVED (0x32)")}},
        Failure{"KeySearchInit",
                Function::C_FindObjectsInit,
                2,
                CKR_OPERATION_ACTIVE,
                {ErrorLine("C_FindObjectsInit: CKO_PUBLIC_KEY", "CKR_OPERATION_ACTIVE (0x90)"),
                 ErrorLine("get_pub_key", "CKR_OPERATION_ACTIVE (0x90)")}},
        Failure{"SecondKeySearch",
                Function::C_FindObjects,
                3,
                CKR_DEVICE_ERROR,
                {ErrorLine("C_FindObjects: CKO_PUBLIC_KEY", "CKR_DEVICE_ERROR (0x30)"),
                 ErrorLine("get_pub_key", "CKR_DEVICE_ERROR (0x30)")}}),
    [](const testing::TestParamInfo<Failure> &info) { return info.param.name; });

TEST_F(TokenFailureTest, NoSlotFailsTheSetUp) {
  card().slots.clear();
  ExpectNotSetUp(MakeToken());
  EXPECT_THAT(Log(),
              ElementsAre("default: ", "default: PKCS11-Modul wurde geladen.",
                          "default: Initialisierung erfolgreich.", "error: Keine Slots gefunden.",
                          kInitFailed, kFinalized, kUnloaded));
}

TEST_F(TokenFailureTest, SeveralSlotsWithoutAReaderNameFailTheSetUp) {
  card().AddSlot(6, "Another", "1");
  for (int way = 0; way < 4; ++way) {
    if (way == 0) bundle().SetReaderName("");
    if (way == 1)
      bundle().SetConfiguration("<dict><key>readerName</key><integer>1</integer></dict>");
    if (way == 2) bundle().SetConfiguration("<array/>");
    if (way == 3) bundle().Remove("config.plist");
    recorder().clear();
    ExpectNotSetUp(MakeToken());
    EXPECT_THAT(
        Log(),
        ElementsAre("default: ", "default: PKCS11-Modul wurde geladen.",
                    "default: Initialisierung erfolgreich.", "default: 2 Slot(s) gefunden.\n",
                    "error: Kartenlesername nicht definiert.", kInitFailed, kFinalized, kUnloaded))
        << way;
  }
  EXPECT_EQ(lindel().Count(Function::C_OpenSession), 0u);
}

TEST_F(TokenFailureTest, MissingModuleFailsTheSetUpWithNothingToCleanUp) {
  bundle().Remove("libpkcs11qarn_Lindel_PCSC.dylib");
  scripted::CapturedOutput standard_error(2);
  ExpectNotSetUp(MakeToken());
  EXPECT_EQ(standard_error.Text(), "");  // there is no path to complain about
  EXPECT_THAT(Log(),
              ElementsAre("default: ", "error: Fehler beim Laden von PKCS11-Modul.", kInitFailed));
  EXPECT_THAT(lindel().Names(), IsEmpty());
  EXPECT_THAT(vumo().Names(), IsEmpty());  // the other module is no substitute
}

TEST_F(TokenFailureTest, FailedInitialisationIsLoggedAtErrorType) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  card().slots.clear();
  MakeToken();
  EXPECT_THAT(Log(), ElementsAre("error: Keine Slots gefunden.", kInitFailed));
}

TEST_F(TokenFailureTest, CleanUpDoesNotDependOnTheLog) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  lindel().Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  ExpectNotSetUp(MakeToken());
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
}

TEST_F(TokenFailureTest, FailedFinalizationIsIgnored) {
  lindel().Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  lindel().Return(Function::C_Finalize, CKR_GENERAL_ERROR);
  ExpectNotSetUp(MakeToken());
  EXPECT_THAT(Log(), Contains(kFinalized));
  EXPECT_EQ(Log().back(), kUnloaded);
}

TEST_F(TokenFailureTest, SuperclassThatFailsGivesNilAndFinalizes) {
  NSError *error = (NSError *)@"untouched";
  Token *token = nil;
  [TKToken failNextInitialisation];
  std::vector<std::string> events;
  {
    Timeline timeline(lindel());
    token = Initialise([Token alloc], &error);
    events = timeline.Take();
  }
  EXPECT_EQ(token, nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
  EXPECT_EQ(initialized, 0);
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  ExpectNothingClosed(lindel());
  // Before its clean-up the set-up says nothing; the first line is the released receiver's.
  ASSERT_GE(events.size(), 5u);
  EXPECT_EQ(std::vector(events.end() - 5, events.end()),
            (std::vector<std::string>{"default: keyAgreement YES.",
                                      "default: (dealloc) C_UnloadModule aufgerufen.",
                                      "C_Finalize(NULL)", kFinalized, kUnloaded}));
}

// --- The flag and the properties ---

TEST_F(TokenFailureTest, SetUpClearsTheFlagAndThePropertiesFirst) {
  bundle().Remove("libpkcs11qarn_Lindel_PCSC.dylib");
  Token *token = UsedToken();
  NSError *error = nil;
  ExpectNotSetUp(Initialise(token, &error));
  [token release];
}

TEST_F(TokenFailureTest, FlagAndPropertiesAreClearWhileTheModuleComesUp) {
  Token *token = UsedToken();
  size_t looks = 0;
  lindel().Observe([&](const scripted::Call &) {
    ++looks;
    EXPECT_EQ(initialized, 0);
    EXPECT_EQ([token module], nullptr);
    EXPECT_EQ([token p11], nullptr);
    EXPECT_EQ([token slotID], 0u);
    EXPECT_EQ([token session], 0u);
  });
  NSError *error = nil;
  Initialise(token, &error);
  lindel().Observe({});
  EXPECT_GT(looks, 20u);
  EXPECT_EQ(initialized, 1);
  [token release];
}

TEST_F(TokenFailureTest, SecondTokensFailedSetUpLeavesTheFlagClearUnderTheFirst) {
  Token *first = MakeToken();
  EXPECT_EQ(initialized, 1);
  lindel().Return(Function::C_OpenSession, CKR_SESSION_COUNT);
  MakeToken();
  EXPECT_EQ(initialized, 0);
  EXPECT_EQ([first p11], lindel().functions());
  EXPECT_NE([first module], nullptr);
}

}  // namespace
