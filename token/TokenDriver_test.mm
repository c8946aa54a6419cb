// From the platform's call to the token.
#import "token/TokenDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "token/Token.h"
#include "token/testing/replaced_method.h"
#include "token/testing/timeline.h"
#include "token/testing/token_fixture.h"

namespace {

using scripted::Function;
using testing::IsEmpty;
using token_testing::BytesOf;
using token_testing::ReplacedMethod;
using token_testing::StandardOutputOf;
using token_testing::Timeline;

class TokenDriverTest : public testing::Test, protected token_testing::TokenFixture {
 protected:
  // The call under test; the result is autoreleased.
  Token *Create(TokenDriver *argument, NSData *aid, NSError **error) {
    Token *token = nil;
    StandardOutputOf([&] {
      token = (Token *)[driver() tokenDriver:argument
                     createTokenForSmartCard:smart_card()
                                         AID:aid
                                       error:error];
    });
    return token;
  }
  Token *Create(NSError **error) { return Create(driver(), AID(), error); }
};

TEST_F(TokenDriverTest, IsASmartCardTokenDriverAndItsOwnDelegate) {
  EXPECT_EQ([TokenDriver superclass], [TKSmartCardTokenDriver class]);
  for (NSString *name in @[ @"TKSmartCardTokenDriverDelegate", @"TKTokenDriverDelegate" ]) {
    EXPECT_TRUE([TokenDriver conformsToProtocol:NSProtocolFromString(name)]);
  }
  EXPECT_EQ([driver() delegate], driver());
}

TEST_F(TokenDriverTest, HoldsNoState) {
  EXPECT_EQ(class_getInstanceSize([TokenDriver class]),
            class_getInstanceSize([TKSmartCardTokenDriver class]));
}

TEST_F(TokenDriverTest, MakesATokenOfTheCard) {
  Token *token = MakeToken();
  ASSERT_EQ([token class], [Token class]);
  EXPECT_EQ([token tokenDriver], driver());
  EXPECT_EQ(BytesOf([token AID]), BytesOf(AID()));
  EXPECT_EQ([[[token keychainContents] items] count], 4u);
}

TEST_F(TokenDriverTest, EachInsertionMakesATokenOfItsOwn) {
  Token *first = MakeToken();
  EXPECT_NE(MakeToken(), first);
}

// The line is deliberate: it marks where a card's lines begin.
TEST_F(TokenDriverTest, EmptyLogLineComesBeforeEverythingElse) {
  {
    Timeline timeline(lindel());
    MakeToken();
    const std::vector<std::string> events = timeline.Take();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front(), "default: ");
  }
  const oslog::Line line = recorder().lines().front();
  EXPECT_EQ(line.type, OS_LOG_TYPE_DEFAULT);
  EXPECT_EQ(line.format, "");
  EXPECT_THAT(line.arguments, IsEmpty());
}

TEST_F(TokenDriverTest, EmptyLogLineIsWrittenOncePerInsertion) {
  MakeToken();
  MakeToken();
  EXPECT_EQ(std::ranges::count(Log(), "default: "), 2);
}

TEST_F(TokenDriverTest, WithoutDefaultLinesTheTokenIsMadeAllTheSame) {
  const oslog::Disabled no_defaults(OS_LOG_TYPE_DEFAULT);
  EXPECT_NE(MakeToken(), nil);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(TokenDriverTest, DriverArgumentIsNotUsed) {
  NSError *error = nil;
  EXPECT_EQ([Create([[[TokenDriver alloc] init] autorelease], AID(), &error) tokenDriver],
            driver());
}

// What the initialiser was given, by a replacement that makes no token.
struct Arguments {
  id smart_card;
  id AID;
  id driver;
  NSError **error;
};
Arguments given;

id NoToken(id self, SEL, id smart_card, id AID, id driver, NSError **error) {
  given = {smart_card, AID, driver, error};
  [self release];
  return nil;
}

TEST_F(TokenDriverTest, CardAidDriverAndErrorPointerArePassedOnUnchanged) {
  const ReplacedMethod replaced([Token class], @selector(initWithSmartCard:AID:tokenDriver:error:),
                                reinterpret_cast<IMP>(NoToken));
  NSError *error = nil;
  EXPECT_EQ(Create(&error), nil);
  EXPECT_EQ(given.smart_card, smart_card());
  EXPECT_EQ(given.AID, AID());
  EXPECT_EQ(given.driver, driver());
  EXPECT_EQ(given.error, &error);
  EXPECT_EQ(Create(nullptr), nil);
  EXPECT_EQ(given.error, nullptr);
}

TEST_F(TokenDriverTest, CardWithoutAnAidIsFine) {
  NSError *error = nil;
  Token *token = Create(driver(), nil, &error);
  ASSERT_NE(token, nil);
  EXPECT_EQ([token AID], nil);
}

TEST_F(TokenDriverTest, TokenIsAutoreleased) {
  @autoreleasepool {
    NSError *error = nil;
    EXPECT_EQ([Create(&error) retainCount], 1u);
    EXPECT_EQ(lindel().Count(Function::C_Finalize), 0u);
  }
  EXPECT_EQ(lindel().Count(Function::C_Finalize), 1u);
}

TEST_F(TokenDriverTest, NilIsPassedOnWithoutAWord) {
  [TKToken failNextInitialisation];
  NSError *error = (NSError *)@"untouched";
  EXPECT_EQ(Create(&error), nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
  EXPECT_EQ(Log().back(), "default: (end) C_UnloadModule aufgerufen.");
}

TEST_F(TokenDriverTest, TokenWhoseSetUpFailedIsPassedOnUnchecked) {
  lindel().Return(Function::C_OpenSession, CKR_TOKEN_NOT_PRESENT);
  NSError *error = (NSError *)@"untouched";
  Token *token = Create(&error);
  EXPECT_EQ([token class], [Token class]);
  EXPECT_EQ([token tokenDriver], nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
}

TEST_F(TokenDriverTest, ErrorIsNeverWrittenNorItsPointerNeeded) {
  NSError *error = (NSError *)@"untouched";
  EXPECT_NE(Create(&error), nil);
  EXPECT_EQ(error, (NSError *)@"untouched");
  EXPECT_NE(Create(nullptr), nil);
  lindel().Return(Function::C_OpenSession, CKR_TOKEN_NOT_PRESENT);
  EXPECT_NE(Create(nullptr), nil);
}

TEST_F(TokenDriverTest, CardAndAidAreHeldByDriverAndSetUpAndTheDriverByTheSetUp) {
  const NSUInteger card_before = [smart_card() retainCount];
  const NSUInteger aid_before = [AID() retainCount];
  const NSUInteger driver_before = [driver() retainCount];
  NSUInteger driver_during = 0;
  NSUInteger card_during = 0;
  NSUInteger aid_during = 0;
  lindel().Observe([&](const scripted::Call &call) {
    if (call.function != Function::C_Initialize) return;
    card_during = [smart_card() retainCount];
    driver_during = [driver() retainCount];
    aid_during = [AID() retainCount];
  });
  MakeToken();
  EXPECT_EQ(card_during, card_before + 2);
  EXPECT_EQ(aid_during, aid_before + 2);
  EXPECT_EQ(driver_during, driver_before + 1);
}

TEST_F(TokenDriverTest, NothingIsHeldAfterTheTokenHasGone) {
  for (int way = 0; way < 3; ++way) {
    if (way == 1) lindel().Return(Function::C_OpenSession, CKR_TOKEN_NOT_PRESENT);
    if (way == 2) {
      lindel().Reset();
      token_testing::AddDefaultCard(&card());
      [TKToken failNextInitialisation];
    }
    const NSUInteger card_before = [smart_card() retainCount];
    const NSUInteger aid_before = [AID() retainCount];
    const NSUInteger driver_before = [driver() retainCount];
    Release(MakeToken());
    EXPECT_EQ([smart_card() retainCount], card_before) << way;
    EXPECT_EQ([AID() retainCount], aid_before) << way;
    EXPECT_EQ([driver() retainCount], driver_before) << way;
  }
}

}  // namespace
