// Sessions, teardown, and several tokens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#import <objc/runtime.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#import "token/TokenSession.h"
#include "token/testing/token_fixture.h"

// Stands in for an AID and tells when its last holder lets go of it.
@interface WatchedAID : NSObject <NSCopying> {
 @public
  void (*_gone)();
}
@end

@implementation WatchedAID
- (id)copyWithZone:(NSZone *)zone {
  (void)zone;
  return [self retain];
}
- (void)dealloc {
  if (_gone != nullptr) _gone();
  [super dealloc];
}
@end

namespace {

using scripted::Function;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using token_testing::StandardOutputOf;

const char kDeallocFinalized[] = "default: (dealloc) C_Finalize aufgerufen.";
const char kDeallocUnloaded[] = "default: (dealloc) C_UnloadModule aufgerufen.";

class TokenLifecycleTest : public testing::Test, protected token_testing::TokenFixture {
 protected:
  void ExpectNothingClosed() {
    EXPECT_THAT(lindel().Names(),
                Not(Contains(AnyOf("C_CloseSession", "C_CloseAllSessions", "C_Login", "C_Logout",
                                   "C_FindObjectsFinal"))));
  }
};

// --- Sessions ---

TEST_F(TokenLifecycleTest, SessionKnowsTheTokenThatMadeIt) {
  Token *token = MakeToken();
  TokenSession *session = MakeSession(token);
  EXPECT_EQ([session class], [TokenSession class]);
  EXPECT_EQ([session tsToken], token);
  EXPECT_EQ([session token], token);
  EXPECT_FALSE([session respondsToSelector:@selector(setTsToken:)]);
}

TEST_F(TokenLifecycleTest, SessionIsASmartCardTokenSessionAndItsOwnDelegate) {
  EXPECT_EQ([TokenSession superclass], [TKSmartCardTokenSession class]);
  EXPECT_TRUE([TokenSession conformsToProtocol:NSProtocolFromString(@"TKTokenSessionDelegate")]);
  TokenSession *session = MakeSession(MakeToken());
  EXPECT_EQ([session delegate], session);
}

TEST_F(TokenLifecycleTest, EachSessionIsANewOneAndMakesNoCall) {
  Token *token = MakeToken();
  lindel().ForgetCalls();
  recorder().clear();
  EXPECT_NE(MakeSession(token), MakeSession(token));
  EXPECT_THAT(lindel().Names(), testing::IsEmpty());
  EXPECT_THAT(Log(), testing::IsEmpty());
}

TEST_F(TokenLifecycleTest, SessionBelongsToTheReceiverWhateverTheTokenArgument) {
  Token *token = MakeToken();
  Token *other = MakeToken();
  @autoreleasepool {
    NSError *error = nil;
    TokenSession *session = (TokenSession *)[token token:other createSessionWithError:&error];
    EXPECT_EQ([session tsToken], token);
  }
}

TEST_F(TokenLifecycleTest, SessionErrorIsNeverWritten) {
  Token *token = MakeToken();
  NSError *error = (NSError *)@"untouched";
  EXPECT_NE([token token:token createSessionWithError:&error], nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ([token token:token createSessionWithError:&error], nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
  EXPECT_NE([token token:token createSessionWithError:nullptr], nil);
}

TEST_F(TokenLifecycleTest, SessionThatCannotBeMadeHoldsNoToken) {
  Token *token = MakeToken();
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ(MakeSession(token), nil);
  EXPECT_EQ([token retainCount], 1u);
}

TEST_F(TokenLifecycleTest, SessionIsAutoreleased) {
  Token *token = MakeToken();
  @autoreleasepool {
    NSError *error = nil;
    EXPECT_EQ([[token token:token createSessionWithError:&error] retainCount], 1u);
  }
  EXPECT_EQ([token retainCount], 1u);
}

TEST_F(TokenLifecycleTest, TokenLivesAsLongAsASessionHoldsIt) {
  Token *token = MakeToken();
  TokenSession *session = MakeSession(token);
  EXPECT_EQ([token retainCount], 3u);  // the fixture, the superclass, tsToken
  Release(token);
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 0u);
  EXPECT_EQ(initialized, 1);
  Release(session);
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
  EXPECT_EQ(initialized, 0);
}

// --- Teardown ---

TEST_F(TokenLifecycleTest, TeardownFinalizesThenUnloadsThenClearsPropertiesAndFlag) {
  Token *token = MakeToken();
  wrapped::Reset();
  std::vector<std::string> states;
  const auto note = [&](const std::string &event) {
    states.push_back(event + ": dlclose " + std::to_string(wrapped::calls().dlclose_count) +
                     ", flag " + std::to_string(initialized) + ", properties " +
                     ([token module] != nullptr && [token p11] != nullptr && [token slotID] != 0 &&
                              [token session] != 0
                          ? "there"
                          : "gone"));
  };
  lindel().ForgetCalls();
  lindel().Observe([&](const scripted::Call &call) { note(call.Text()); });
  oslog::SetSink([&](const oslog::Line &line) { note(line.typed_text()); });
  Release(token);
  oslog::SetSink({});
  EXPECT_THAT(states,
              ElementsAre("C_Finalize(NULL): dlclose 0, flag 1, properties there",
                          std::string(kDeallocFinalized) + ": dlclose 0, flag 1, properties there",
                          std::string(kDeallocUnloaded) + ": dlclose 1, flag 1, properties there"));
  EXPECT_EQ(initialized, 0);
  ExpectNothingClosed();
}

TEST_F(TokenLifecycleTest, SuperclassIsTornDownLast) {
  static Token *token = nil;
  static bool gone = false;
  gone = false;
  WatchedAID *watched = [[WatchedAID alloc] init];
  watched->_gone = [] {
    gone = true;
    EXPECT_EQ(initialized, 0);
    EXPECT_EQ([token module], nullptr);
    EXPECT_EQ([token p11], nullptr);
    EXPECT_EQ([token slotID], 0u);
    EXPECT_EQ([token session], 0u);
  };
  StandardOutputOf([&] {
    @autoreleasepool {
      token = [[Token alloc] initWithSmartCard:smart_card()
                                           AID:(NSData *)watched
                                   tokenDriver:driver()
                                         error:nullptr];
    }
  });
  [watched release];
  ASSERT_FALSE(gone);
  ASSERT_NE([token p11], nullptr);
  [token release];
  EXPECT_TRUE(gone);
}

TEST_F(TokenLifecycleTest, TeardownReleasesADriverThatTheTokenHolds) {
  Token *token = MakeToken();
  NSObject *driver = [[[NSObject alloc] init] autorelease];
  object_setIvar(token, class_getInstanceVariable([Token class], "_driver"), [driver retain]);
  EXPECT_EQ([driver retainCount], 2u);
  Release(token);
  EXPECT_EQ([driver retainCount], 1u);
}

TEST_F(TokenLifecycleTest, TeardownUnloadsTheTokensOwnModule) {
  wrapped::Reset();
  Token *token = MakeToken();
  void *library = wrapped::calls().dlopen_result;
  Release(token);
  EXPECT_EQ(wrapped::calls().dlclose_library, library);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);  // the module handle
}

TEST_F(TokenLifecycleTest, TeardownIgnoresFailures) {
  Token *token = MakeToken();
  lindel().Return(Function::C_Finalize, CKR_GENERAL_ERROR);
  wrapped::calls().fake_dlclose = true;
  wrapped::calls().dlclose_result = -1;
  recorder().clear();
  Release(token);
  EXPECT_THAT(Log(), ElementsAre(kDeallocFinalized, kDeallocUnloaded));
  EXPECT_EQ(initialized, 0);
}

TEST_F(TokenLifecycleTest, TeardownDoesNotDependOnTheLog) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  Token *token = MakeToken();
  wrapped::Reset();
  Release(token);
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
  EXPECT_THAT(Log(), testing::IsEmpty());
}

TEST_F(TokenLifecycleTest, LoggedInTokenIsTornDownWithoutLogoutOrClosing) {
  Token *token = MakeToken();
  card().session_state = CKS_RW_USER_FUNCTIONS;
  lindel().ForgetCalls();
  Release(token);
  EXPECT_THAT(lindel().Texts(), ElementsAre("C_Finalize(NULL)"));
}

TEST_F(TokenLifecycleTest, TeardownAfterAFailedSetUpFinalizesNothing) {
  lindel().Return(Function::C_OpenSession, CKR_TOKEN_NOT_PRESENT);
  Token *token = MakeToken();
  lindel().ForgetCalls();
  recorder().clear();
  initialized = 1;  // another token's
  Release(token);
  EXPECT_THAT(lindel().Names(), testing::IsEmpty());
  EXPECT_THAT(Log(), ElementsAre(kDeallocUnloaded));
  EXPECT_EQ(initialized, 0);
}

TEST_F(TokenLifecycleTest, TokenThatWasNeverSetUpCanGo) {
  [[Token alloc] release];
  EXPECT_THAT(Log(), ElementsAre(kDeallocUnloaded));
}

// --- Several tokens ---

TEST_F(TokenLifecycleTest, SecondTokensSetUpClearsTheFlagUntilItSucceeds) {
  MakeToken();
  std::vector<int> flags;
  lindel().Observe([&](const scripted::Call &) { flags.push_back(initialized); });
  MakeToken();
  EXPECT_THAT(flags, testing::Each(0));
  EXPECT_FALSE(flags.empty());
  EXPECT_EQ(initialized, 1);
}

TEST_F(TokenLifecycleTest, SecondTokenSharesTheModuleAndGetsASessionOfItsOwn) {
  Token *first = MakeToken();
  Token *second = MakeToken();
  EXPECT_EQ([second p11], [first p11]);
  EXPECT_NE([second module], [first module]);
  EXPECT_EQ([second session], [first session] + 1);
}

TEST_F(TokenLifecycleTest, OneTokensTeardownClearsTheFlagWhileAnotherLives) {
  Token *first = MakeToken();
  Token *second = MakeToken();
  Release(first);
  EXPECT_EQ(initialized, 0);
  EXPECT_NE([second p11], nullptr);
}

}  // namespace
