// Logging in with the PIN that the platform collected.
#import "token/TSAuthOperation.h"

#import <objc/runtime.h>

#include "token/testing/session_fixture.h"

// A string that says when it goes.
@interface DyingString : NSObject {
  std::vector<std::string> *_deaths;
}
- (instancetype)initWithDeaths:(std::vector<std::string> *)deaths;
@end

@implementation DyingString
- (instancetype)initWithDeaths:(std::vector<std::string> *)deaths {
  self = [super init];
  if (self != nil) _deaths = deaths;
  return self;
}
- (void)dealloc {
  _deaths->emplace_back("authID");
  [super dealloc];
}
@end

// A string without a UTF-8 form.
@interface FormlessString : NSString
@end

@implementation FormlessString
- (NSUInteger)length {
  return 4;
}
- (unichar)characterAtIndex:(NSUInteger)index {
  (void)index;
  return '1';
}
- (const char *)UTF8String {
  return nullptr;
}
- (id)copyWithZone:(NSZone *)zone {
  (void)zone;
  return [self retain];
}
@end

namespace token_testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kPin[] = "73914682";

class AuthOperationTest : public SessionTest {
 protected:
  AuthOperationTest() {
    card().session_state = CKS_RW_PUBLIC_SESSION;
    operation_ = [[[TSAuthOperation alloc] initWithSession:session_
                                                    authID:(NSData *)@"PIN"] autorelease];
    [operation_ setPIN:String(kPin)];
  }

  BOOL Finish() { return [operation_ finishWithError:nullptr]; }
  BOOL FinishWith(NSString *pin) {
    [operation_ setPIN:pin];
    return Finish();
  }

  // An operation that alone holds its session and its authID, which tell when they go.
  TSAuthOperation *MakeWatched(std::vector<std::string> *deaths) {
    DyingSession *session = [[DyingSession alloc] initWithToken:token_];
    [session setDeaths:deaths];
    DyingString *authID = [[DyingString alloc] initWithDeaths:deaths];
    TSAuthOperation *operation = [[TSAuthOperation alloc] initWithSession:session
                                                                   authID:(NSData *)authID];
    [session release];
    [authID release];
    return operation;
  }

  TSAuthOperation *operation_;
};

TEST_F(AuthOperationTest, WithoutAPinTheCardIsNotAsked) {
  EXPECT_FALSE(FinishWith(nil));
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(Log(),
              ElementsAre("default: PIN verifizieren...", "error: Fehler: PIN nicht gefunden."));
}

TEST_F(AuthOperationTest, ARefusedPinIsAFailure) {
  card().pin = "1234";
  Timeline timeline(lindel());
  EXPECT_FALSE(Finish());
  EXPECT_THAT(timeline.Take(),
              ElementsAre("default: PIN verifizieren...", "C_Login(7, 1, <3733393134363832>)",
                          "error: PKCS11 function C_Login failed: rv = CKR_PIN_INCORRECT (0xa0)",
                          "error: PIN kann NICHT verifiziert werden."));
}

TEST_F(AuthOperationTest, BeingLoggedInAlreadyIsAFailureAsWell) {
  ASSERT_TRUE(Finish());
  Forget();
  EXPECT_FALSE(Finish());
  EXPECT_THAT(Calls(), ElementsAre("C_Login(7, 1, <3733393134363832>)"));
  EXPECT_THAT(Log(), ElementsAre("default: PIN verifizieren...",
                                 "error: PKCS11 function C_Login failed: rv = "
                                 "CKR_USER_ALREADY_LOGGED_IN (0x100)",
                                 "error: PIN kann NICHT verifiziert werden."));
}

TEST_F(AuthOperationTest, EveryResultButOkIsAFailure) {
  for (CK_RV result :
       {CK_RV{CKR_CANCEL}, CK_RV{CKR_GENERAL_ERROR}, CK_RV{CKR_PIN_LOCKED},
        CK_RV{CKR_SESSION_HANDLE_INVALID}, CK_RV{CKR_TOKEN_NOT_PRESENT},
        CK_RV{CKR_CRYPTOKI_ALREADY_INITIALIZED}, CK_RV{0x80000001}, CK_RV{0x100000000}}) {
    lindel().Return(scripted::Function::C_Login, result);
    EXPECT_FALSE(Finish()) << result;
    EXPECT_EQ(Log().back(), "error: PIN kann NICHT verifiziert werden.");
  }
}

TEST_F(AuthOperationTest, TheErrorIsNeverWritten) {
  NSError *mine = [NSError errorWithDomain:@"mine" code:1 userInfo:nil];
  NSError *error = mine;
  [operation_ setPIN:nil];
  EXPECT_FALSE([operation_ finishWithError:&error]);
  EXPECT_EQ(error, mine);
  card().pin = "1234";
  [operation_ setPIN:String(kPin)];
  EXPECT_FALSE([operation_ finishWithError:&error]);
  EXPECT_EQ(error, mine);
  card().pin = kPin;
  EXPECT_TRUE([operation_ finishWithError:&error]);
  EXPECT_EQ(error, mine);
  EXPECT_FALSE([operation_ finishWithError:&error]) << "logged in already";
  EXPECT_EQ(error, mine);
}

TEST_F(AuthOperationTest, AnAcceptedPinLogsTheSessionIn) {
  card().pin = kPin;
  Timeline timeline(lindel());
  EXPECT_TRUE(Finish());
  EXPECT_THAT(timeline.Take(),
              ElementsAre("default: PIN verifizieren...", "C_Login(7, 1, <3733393134363832>)",
                          "default: PIN-Verifizierung war erfolgreich."));
  EXPECT_EQ(card().session_state, CK_STATE{CKS_RW_USER_FUNCTIONS});
}

TEST_F(AuthOperationTest, ThePinTravelsAsItStandsInUtf8) {
  FinishWith(@"Gehäß€😀 ");
  EXPECT_THAT(Calls(), ElementsAre("C_Login(7, 1, <476568c3a4c39fe282acf09f988020>)"));
}

TEST_F(AuthOperationTest, AnEmptyPinHasLengthZero) {
  EXPECT_TRUE(FinishWith(@""));
  EXPECT_THAT(Calls(), ElementsAre("C_Login(7, 1, <>)"));
}

TEST_F(AuthOperationTest, APinWithoutAUtf8FormHasLengthZero) {
  EXPECT_TRUE(FinishWith([[[FormlessString alloc] init] autorelease]));
  EXPECT_THAT(Calls(), ElementsAre("C_Login(7, 1, NULL[0])"));
}

TEST_F(AuthOperationTest, ALongPinIsNotCut) {
  FinishWith([@"" stringByPaddingToLength:100000 withString:@"4711" startingAtIndex:0]);
  EXPECT_EQ(lindel().At(scripted::Function::C_Login).arguments[2].number, 100000u);
}

TEST_F(AuthOperationTest, ThePinEndsAtItsFirstNulCharacter) {
  const unichar characters[] = {'1', '2', 0, '3'};
  FinishWith([NSString stringWithCharacters:characters length:4]);
  EXPECT_THAT(Calls(), ElementsAre("C_Login(7, 1, <3132>)"));
}

TEST_F(AuthOperationTest, NoLogLineAndNoOutputHoldsThePinInAnyCase) {
  scripted::CapturedOutput errors(2);
  const std::string output = StandardOutputOf([&] {
    card().pin = "1234";
    EXPECT_FALSE(Finish());
    card().pin = kPin;
    EXPECT_TRUE(Finish());
    EXPECT_FALSE(Finish());
    [session_ tokenSession:session_
        beginAuthForOperation:TKTokenOperationSignData
                   constraint:@"other"
                        error:nullptr];
  });
  for (const char *secret : {kPin, "7391", "4682", "3733393134363832"}) {
    EXPECT_FALSE(LogContains(secret));
  }
  EXPECT_EQ(output, "");
  EXPECT_EQ(errors.Text(), "");
}

TEST_F(AuthOperationTest, TheLinesAreConstantTexts) {
  card().pin = kPin;
  Finish();
  FinishWith(nil);
  EXPECT_THAT(Formats(), ElementsAre("PIN verifizieren...", "PIN-Verifizierung war erfolgreich.",
                                     "PIN verifizieren...", "Fehler: PIN nicht gefunden."));
}

TEST_F(AuthOperationTest, ThePinReachesTheCardWithTheLogOffAndNoResultIsNamed) {
  const oslog::Disabled no_default(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_error(OS_LOG_TYPE_ERROR);
  card().pin = "1234";
  EXPECT_FALSE(Finish());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(Calls().size(), 1u);
}

TEST_F(AuthOperationTest, TheTokensSessionAndListAreReadAtTheLogin) {
  [token_ setSession:99];
  Finish();
  EXPECT_THAT(Calls(), ElementsAre("C_Login(99, 1, <3733393134363832>)"));
  Forget();
  [token_ setP11:vumo().functions()];
  EXPECT_TRUE(Finish());
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_THAT(vumo().Texts(), ElementsAre("C_Login(99, 1, <3733393134363832>)"));
  [token_ setP11:lindel().functions()];
}

TEST_F(AuthOperationTest, ASessionThatOnlyTheOperationHoldsStillLogsIn) {
  std::vector<std::string> deaths;
  @autoreleasepool {
    TSAuthOperation *operation = [MakeWatched(&deaths) autorelease];
    [operation setPIN:@"1"];
    EXPECT_TRUE([operation finishWithError:nullptr]);
    EXPECT_THAT(deaths, IsEmpty());
  }
  EXPECT_EQ(deaths.size(), 2u);
}

TEST_F(AuthOperationTest, AuthIDGoesFirstAndTheSessionAfterIt) {
  std::vector<std::string> deaths;
  TSAuthOperation *operation = MakeWatched(&deaths);
  EXPECT_THAT(deaths, IsEmpty());
  [operation release];
  EXPECT_THAT(deaths, ElementsAre("authID", "session"));
}

TEST_F(AuthOperationTest, WhatTheGettersReturnSurvivesTheOperation) {
  std::vector<std::string> deaths;
  @autoreleasepool {
    TSAuthOperation *operation = MakeWatched(&deaths);
    EXPECT_EQ([[operation session] class], [DyingSession class]);
    EXPECT_EQ([(id)[operation authID] class], [DyingString class]);
    [operation release];
    EXPECT_THAT(deaths, IsEmpty());
  }
  EXPECT_EQ(deaths.size(), 2u);
}

TEST_F(AuthOperationTest, SessionAndAuthIDCannotBeReplaced) {
  EXPECT_FALSE([operation_ respondsToSelector:@selector(setSession:)]);
  EXPECT_FALSE([operation_ respondsToSelector:@selector(setAuthID:)]);
}

TEST_F(AuthOperationTest, NothingLogsOutOrClosesTheSession) {
  EXPECT_TRUE(Finish());
  Release(session_);
  EXPECT_THAT(lindel().Names(), ElementsAre("C_Login"));
}

bool superclass_fails = false;

id Init(id self, SEL command) {
  (void)command;
  if (!superclass_fails) return self;
  [self release];
  return nil;
}

TEST_F(AuthOperationTest, WithoutASuperclassThereIsNoOperation) {
  // Stays there, and does what NSObject does unless told otherwise.
  class_addMethod([TKTokenSmartCardPINAuthOperation class], @selector(init), (IMP)Init, "@@:");
  superclass_fails = true;
  EXPECT_EQ([[TSAuthOperation alloc] initWithSession:session_ authID:(NSData *)@"PIN"], nil);
  superclass_fails = false;
  EXPECT_NE([[[TSAuthOperation alloc] initWithSession:session_
                                               authID:(NSData *)@"PIN"] autorelease],
            nil);
}

}  // namespace
}  // namespace token_testing
