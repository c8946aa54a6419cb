#import <CryptoTokenKit/CryptoTokenKit.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/ctk/ctk_fixture.h"

#pragma clang diagnostic ignored "-Wunused-parameter"

// Classes that implement their delegate's protocol.
@interface DelegateDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
@end
@implementation DelegateDriver
- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  return nil;
}
@end

@interface DelegateToken : TKSmartCardToken <TKTokenDelegate>
@end
@implementation DelegateToken
- (TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error {
  return nil;
}
@end

@interface DelegateSession : TKSmartCardTokenSession <TKTokenSessionDelegate>
@end
@implementation DelegateSession
@end

// A token that reports its release.
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

TEST(Initialiser, ReturnsNilOnceWhenToldTo) {
  releasedTokens = 0;
  [TKToken failNextInitialisation];
  EXPECT_EQ(MakeToken<ReportingToken>(Driver()), nil);
  EXPECT_EQ(releasedTokens, 1);  // the receiver is gone, as its caller cannot release it
  ReportingToken *token = MakeToken<ReportingToken>(Driver());
  EXPECT_NE(token, nil);
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ([[TKSmartCardTokenSession alloc] initWithToken:token], nil);
  TKTokenSession *session = [[TKSmartCardTokenSession alloc] initWithToken:token];
  EXPECT_NE(session, nil);
  [session release];
  [token release];
}

TEST(Token, WithoutItsInitialiserEverythingIsNilAndASessionIsServed) {
  ReportingToken *token = [ReportingToken alloc];
  EXPECT_EQ([token tokenDriver], nil);
  EXPECT_EQ([token delegate], nil);
  EXPECT_EQ([token keychainContents], nil);
  EXPECT_EQ([token instanceID], nil);
  EXPECT_EQ([token AID], nil);
  TKTokenSession *session = [[TKTokenSession alloc] initWithToken:token];
  EXPECT_EQ([session token], token);
  [session release];
  releasedTokens = 0;
  [token release];
  EXPECT_EQ(releasedTokens, 1);
}

// Checks that an object, which it releases, is its own delegate and does not keep itself alive.
template <typename Class>
void ExpectOwnDelegate(Class *object) {
  ASSERT_NE(object, nil);
  EXPECT_EQ([object delegate], object);
  EXPECT_EQ([object retainCount], 1U);
  [object setDelegate:nil];
  EXPECT_EQ([object delegate], nil);
  [object release];
}

TEST(Delegate, IsTheObjectItselfWhenItsClassIsOne) {
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(Driver());
  ExpectOwnDelegate([[DelegateDriver alloc] init]);
  ExpectOwnDelegate(MakeToken<DelegateToken>(Driver()));
  ExpectOwnDelegate([[DelegateSession alloc] initWithToken:token]);
  void *library = dlopen(FOREIGN_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  ExpectOwnDelegate((DelegateDriver *)[[NSClassFromString(@"ForeignDriver") alloc] init]);
  // And nobody without the protocol.
  TKTokenSession *session = [[[TKSmartCardTokenSession alloc] initWithToken:token] autorelease];
  EXPECT_EQ([Driver() delegate], nil);
  EXPECT_EQ([token delegate], nil);
  EXPECT_EQ([session delegate], nil);
  [token release];
}

TEST(Token, KeepsItsDriverInstanceIDAndAIDAndContentsOfItsOwn) {
  TKSmartCardTokenDriver *driver = Driver();
  const NSUInteger before = [driver retainCount];
  NSData *aid = [NSData dataWithBytes:"\xA0" length:1];
  TKSmartCardToken *token = MakeToken<TKSmartCardToken>(driver, aid);
  TKSmartCardToken *other = MakeToken<TKSmartCardToken>(Driver());
  EXPECT_EQ([token tokenDriver], driver);
  EXPECT_EQ(TextOf([token instanceID]), "card 1");
  EXPECT_TRUE([[token AID] isEqual:aid]);
  EXPECT_EQ([driver retainCount], before + 1);
  EXPECT_NE([token keychainContents], nil);
  EXPECT_NE([token keychainContents], [other keychainContents]);
  [other release];
  [token release];
  EXPECT_EQ([driver retainCount], before);
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

TEST(AuthOperation, PlainOneSucceedsWithoutAnError) {
  TKTokenAuthOperation *operation = [[[TKTokenAuthOperation alloc] init] autorelease];
  NSError *error = nil;
  EXPECT_NE([operation finishWithError:&error], NO);
  EXPECT_EQ(error, nil);
}

TEST(AuthOperation, ArchiveNeverHoldsThePinWhichIsACopy) {
  TKTokenSmartCardPINAuthOperation *operation =
      [[[TKTokenSmartCardPINAuthOperation alloc] init] autorelease];
  EXPECT_EQ([operation PIN], nil);
  EXPECT_EQ([operation APDUTemplate], nil);
  NSMutableString *pin = [NSMutableString stringWithString:@"271828"];
  [operation setPIN:pin];
  [pin setString:@"changed"];
  EXPECT_EQ(TextOf([operation PIN]), "271828");
  EXPECT_NE([TKTokenSmartCardPINAuthOperation supportsSecureCoding], NO);
  NSData *archive = [NSKeyedArchiver archivedDataWithRootObject:operation];
  NSData *text = [@"271828" dataUsingEncoding:NSUTF8StringEncoding];
  EXPECT_EQ([archive rangeOfData:text options:0 range:NSMakeRange(0, [archive length])].location,
            static_cast<NSUInteger>(NSNotFound));
  EXPECT_EQ([[NSKeyedUnarchiver unarchiveObjectWithData:archive] PIN], nil);
}

TEST(ErrorDomain, IsTheFrameworksName) { EXPECT_EQ(TextOf(TKErrorDomain), "CryptoTokenKit"); }

}  // namespace
