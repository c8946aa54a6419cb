#import <CryptoTokenKit/CryptoTokenKit.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

// Classes that implement their delegate's protocol.
@interface DelegateDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end
@implementation DelegateDriver
- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  (void)driver;
  (void)smartCard;
  (void)AID;
  (void)error;
  return nil;
}
@end

@interface DelegateToken : TKSmartCardToken <TKTokenDelegate>
@end
@implementation DelegateToken
- (TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error {
  (void)error;
  return [[[TKSmartCardTokenSession alloc] initWithToken:token] autorelease];
}
@end

@interface DelegateSession : TKSmartCardTokenSession <TKTokenSessionDelegate>
@end
@implementation DelegateSession
@end

// A token that reports its release and can skip the base initialiser.
static int releasedTokens = 0;
@interface ReportingToken : TKSmartCardToken
@end
@implementation ReportingToken
- (void)dealloc {
  ++releasedTokens;
  [super dealloc];
}
@end

namespace {

template <typename Class>
Class *MakeToken(TKSmartCardTokenDriver *driver, NSData *aid = nil) {
  TKSmartCard *card = [[[TKSmartCard alloc] init] autorelease];
  return [[Class alloc] initWithSmartCard:card AID:aid instanceID:@"card 1" tokenDriver:driver];
}

TKSmartCardTokenDriver *Driver() { return [[[TKSmartCardTokenDriver alloc] init] autorelease]; }

TEST(Token, InitialiserReturnsNilOnceWhenToldTo) {
  releasedTokens = 0;
  [TKToken failNextInitialisation];
  EXPECT_EQ(MakeToken<ReportingToken>(Driver()), nil);
  EXPECT_EQ(releasedTokens, 1);  // the receiver is gone, as its caller cannot release it
  ReportingToken *token = MakeToken<ReportingToken>(Driver());
  EXPECT_NE(token, nil);
  [token release];
}

TEST(Token, WithoutItsInitialiserEverythingIsNil) {
  ReportingToken *token = [ReportingToken alloc];
  EXPECT_EQ([token tokenDriver], nil);
  EXPECT_EQ([token delegate], nil);
  EXPECT_EQ([token keychainContents], nil);
  EXPECT_EQ([token instanceID], nil);
  EXPECT_EQ([token AID], nil);
  [[token keychainContents] fillWithItems:@[]];
  releasedTokens = 0;
  [token release];
  EXPECT_EQ(releasedTokens, 1);
}

TEST(Token, WithoutItsInitialiserServesASession) {
  TKSmartCardToken *token = [TKSmartCardToken alloc];
  TKTokenSession *session = [[TKTokenSession alloc] initWithToken:token];
  EXPECT_EQ([session token], token);
  [session release];
  [token release];
}

TEST(Token, IsNotItsOwnDelegateWithoutTheProtocol) {
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(Driver());
  EXPECT_EQ([token delegate], nil);
  [token release];
}

TEST(Token, IsItsOwnDelegateAndDoesNotKeepItselfAlive) {
  DelegateToken *token = MakeToken<DelegateToken>(Driver());
  EXPECT_EQ([token retainCount], 1U);
  EXPECT_EQ([token delegate], token);
  EXPECT_EQ([token retainCount], 1U);
  [token release];
}

TEST(Token, DelegateCanBeReplacedAndIsNotRetained) {
  DelegateToken *token = MakeToken<DelegateToken>(Driver());
  DelegateToken *other = MakeToken<DelegateToken>(Driver());
  [token setDelegate:other];
  EXPECT_EQ([token delegate], other);
  EXPECT_EQ([other retainCount], 1U);
  [token setDelegate:nil];
  EXPECT_EQ([token delegate], nil);
  [other release];
  [token release];
}

TEST(Token, KeepsItsDriverInstanceIDAndAID) {
  TKSmartCardTokenDriver *driver = Driver();
  const NSUInteger before = [driver retainCount];
  NSData *aid = [NSData dataWithBytes:"\xA0" length:1];
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(driver, aid);
  EXPECT_EQ([token tokenDriver], driver);
  EXPECT_EQ(TextOf([token instanceID]), "card 1");
  EXPECT_TRUE([[token AID] isEqual:aid]);
  EXPECT_EQ([driver retainCount], before + 1);
  [token release];
  EXPECT_EQ([driver retainCount], before);
}

TEST(Token, HasKeychainContentsOfItsOwn) {
  TKSmartCardToken *one = MakeToken<TKSmartCardToken>(Driver());
  TKSmartCardToken *two = MakeToken<TKSmartCardToken>(Driver());
  TKTokenKeychainItem *item = [[[TKTokenKeychainItem alloc] initWithObjectID:@"a"] autorelease];
  [[one keychainContents] fillWithItems:@[ item ]];
  EXPECT_EQ([[[one keychainContents] items] count], 1U);
  EXPECT_EQ([[[two keychainContents] items] count], 0U);
  [one release];
  [two release];
}

TEST(Driver, IsItsOwnDelegateWhenItsClassIsOne) {
  EXPECT_EQ([Driver() delegate], nil);
  DelegateDriver *driver = [[DelegateDriver alloc] init];
  EXPECT_EQ([driver delegate], driver);
  EXPECT_EQ([driver retainCount], 1U);
  [driver release];
}

TEST(Session, InitialiserReturnsNilOnceWhenToldTo) {
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(Driver());
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ([[TKSmartCardTokenSession alloc] initWithToken:token], nil);
  TKTokenSession *session = [[TKSmartCardTokenSession alloc] initWithToken:token];
  EXPECT_NE(session, nil);
  [session release];
  [token release];
}

TEST(Session, IsItsOwnDelegateWhenItsClassIsOne) {
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(Driver());
  TKTokenSession *plain = [[TKSmartCardTokenSession alloc] initWithToken:token];
  DelegateSession *session = [[DelegateSession alloc] initWithToken:token];
  EXPECT_EQ([plain delegate], nil);
  EXPECT_EQ([session delegate], session);
  EXPECT_EQ([session retainCount], 1U);
  [session release];
  [plain release];
  [token release];
}

TEST(Session, KeepsItsToken) {
  releasedTokens = 0;
  ReportingToken *token = MakeToken<ReportingToken>(Driver());
  TKTokenSession *session = [[TKTokenSession alloc] initWithToken:token];
  [token release];
  EXPECT_EQ(releasedTokens, 0);
  EXPECT_EQ([session token], token);
  [session release];
  EXPECT_EQ(releasedTokens, 1);
}

TEST(Driver, OfALibraryLoadedLaterIsItsOwnDelegateToo) {
  void *library = dlopen(FOREIGN_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  TKSmartCardTokenDriver *driver = [[NSClassFromString(@"ForeignDriver") alloc] init];
  EXPECT_NE(driver, nil);
  EXPECT_EQ([driver delegate], driver);
  [driver release];
}

TEST(ErrorDomain, IsTheFrameworksName) { EXPECT_EQ(TextOf(TKErrorDomain), "CryptoTokenKit"); }

}  // namespace
