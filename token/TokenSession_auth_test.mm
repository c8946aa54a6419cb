// A session's token, and how it answers a constraint.
#import "platform/linux/ctk/TKHostInterface.h"
#import "token/TSAuthOperation.h"
#include "token/testing/replaced_method.h"
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BeginAuthTest : public SessionTest {
 protected:
  TSAuthOperation *Begin(id constraint, NSError **error) {
    return (TSAuthOperation *)[session_ tokenSession:session_
                               beginAuthForOperation:TKTokenOperationSignData
                                          constraint:constraint
                                               error:error];
  }
  NSError *error_ = nil;
};

TEST_F(BeginAuthTest, AnyOtherConstraintIsRefused) {
  for (id constraint : {
         (id) @"PUK", (id) @"pin", (id) @"PIN ", (id) @"", (id) @"PINPIN",
             (id)[NSNumber numberWithBool:YES], (id)Data({'P', 'I', 'N'}), (id) @[ @"PIN" ]
       }) {
    Forget();
    error_ = nil;
    EXPECT_EQ(Begin(constraint, &error_), nil);
    EXPECT_THAT(Log(),
                ElementsAre("error: Constraint ungültig: " + Utf8([constraint description])));
    EXPECT_EQ(Text(error_),
              "TKErrorDomain -8 {NSLocalizedDescription: Die Zugriffsbeschränkung des Schlüssels "
              "wird nicht unterstützt.}");
  }
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(BeginAuthTest, NoConstraintIsRefusedToo) {
  EXPECT_EQ(Begin(nil, &error_), nil);
  EXPECT_THAT(Log(), ElementsAre("error: Constraint ungültig: (null)"));
  EXPECT_EQ([error_ code], -8);
}

TEST_F(BeginAuthTest, TheRefusedConstraintIsPrivateInTheLog) {
  Begin(@"PUK", &error_);
  EXPECT_THAT(PublicLog(), ElementsAre("error: Constraint ungültig: <private>"));
  EXPECT_THAT(Formats(), ElementsAre("Constraint ungültig: %@"));
}

TEST_F(BeginAuthTest, WithoutAnErrorPointerTheRefusalWritesNothing) {
  EXPECT_EQ(Begin(@"PUK", nullptr), nil);
  EXPECT_THAT(Log(), ElementsAre("error: Constraint ungültig: PUK"));
}

TEST_F(BeginAuthTest, TheRefusalComesWithTheLogOff) {
  const oslog::Disabled off(OS_LOG_TYPE_ERROR);
  EXPECT_EQ(Begin(@"PUK", &error_), nil);
  EXPECT_EQ([error_ code], -8);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(BeginAuthTest, TheRefusalIsInTheUsersLanguage) {
  const TestBundle english("en");
  Begin(@"PUK", &error_);
  EXPECT_EQ(Text(error_),
            "TKErrorDomain -8 {NSLocalizedDescription: The key's access constraint is not "
            "supported.}");
}

TEST_F(BeginAuthTest, WithoutATranslationTheTextIsTheKeyItself) {
  bundle().Remove("de.lproj");
  bundle().Remove("en.lproj");
  Begin(@"PUK", &error_);
  EXPECT_EQ(Text(error_), "TKErrorDomain -8 {NSLocalizedDescription: WRONG_CONSTR}");
}

std::string asked_for;

id NoteRequest(id self, SEL command, NSString *key, NSString *value, NSString *table) {
  (void)self;
  (void)command;
  asked_for = "key " + Utf8(key) + ", value '" + Utf8(value) + "', table " + Utf8(table);
  return @"text";
}

TEST_F(BeginAuthTest, TheTextIsAskedForWithAnEmptyDefaultFromTheDefaultTable) {
  const ReplacedMethod replaced([[NSBundle mainBundle] class],
                                @selector(localizedStringForKey:value:table:), (IMP)NoteRequest);
  Begin(@"PUK", &error_);
  EXPECT_EQ(asked_for, "key WRONG_CONSTR, value '', table (null)");
  EXPECT_EQ(Text(error_), "TKErrorDomain -8 {NSLocalizedDescription: text}");
}

TEST_F(BeginAuthTest, PinIsAnsweredWithAnOperationAndNotAWord) {
  NSError *untouched = [NSError errorWithDomain:@"mine" code:1 userInfo:nil];
  error_ = untouched;
  TSAuthOperation *operation = Begin(@"PIN", &error_);
  ASSERT_NE(operation, nil);
  EXPECT_EQ([operation class], [TSAuthOperation class]);
  EXPECT_EQ(error_, untouched);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_THAT(Calls(), IsEmpty());
  EXPECT_NE(Begin(@"PIN", nullptr), nil);
}

TEST_F(BeginAuthTest, TheConstraintIsComparedByItsTextAndKeptAsTheObjectItIs) {
  NSMutableString *built = [NSMutableString stringWithString:@"P"];
  [built appendString:@"IN"];
  TSAuthOperation *operation = Begin(built, &error_);
  ASSERT_NE(operation, nil);
  EXPECT_EQ((id)[operation authID], (id)built);
}

TEST_F(BeginAuthTest, AuthIDHoldsTheStringThoughDeclaredAsData) {
  TSAuthOperation *operation = Begin(@"PIN", &error_);
  id authID = [operation authID];
  EXPECT_TRUE([authID isKindOfClass:[NSString class]]);
  EXPECT_TRUE([authID isEqual:@"PIN"]);
}

TEST_F(BeginAuthTest, EveryOperationNumberIsAnsweredAlike) {
  for (NSInteger number : {0, 1, 2, 3, 4, 5, -1}) {
    EXPECT_NE([session_ tokenSession:session_
                  beginAuthForOperation:static_cast<TKTokenOperation>(number)
                             constraint:@"PIN"
                                  error:nullptr],
              nil);
    EXPECT_EQ([session_ tokenSession:session_
                  beginAuthForOperation:static_cast<TKTokenOperation>(number)
                             constraint:@"PUK"
                                  error:nullptr],
              nil);
  }
}

TEST_F(BeginAuthTest, TheOperationGetsTheReceivingSessionAndNotTheArgument) {
  TokenSession *other = MakeSession(token_);
  TSAuthOperation *operation = (TSAuthOperation *)[session_ tokenSession:other
                                                   beginAuthForOperation:TKTokenOperationSignData
                                                              constraint:@"PIN"
                                                                   error:nullptr];
  EXPECT_EQ([operation session], session_);
  operation =
      (TSAuthOperation *)[session_ tokenSession:(TKTokenSession *)[[NSObject new] autorelease]
                          beginAuthForOperation:TKTokenOperationSignData
                                     constraint:@"PIN"
                                          error:nullptr];
  EXPECT_EQ([operation session], session_);
}

TEST_F(BeginAuthTest, EveryRequestGetsAnOperationOfItsOwn) {
  EXPECT_NE(Begin(@"PIN", nullptr), Begin(@"PIN", nullptr));
}

TEST_F(BeginAuthTest, NothingElseIsSetOnTheOperation) {
  TSAuthOperation *operation = Begin(@"PIN", nullptr);
  EXPECT_EQ([operation PIN], nil);
  EXPECT_EQ([operation APDUTemplate], nil);
}

TEST_F(BeginAuthTest, ASessionHoldsItsTokenAndReleasesIt) {
  const NSUInteger before = [token_ retainCount];
  @autoreleasepool {
    TokenSession *session = [[TokenSession alloc] initWithToken:token_];
    EXPECT_EQ([session tsToken], token_);
    EXPECT_GT([token_ retainCount], before);
    [session release];
  }
  EXPECT_EQ([token_ retainCount], before);
  EXPECT_THAT(Calls(), IsEmpty()) << "the module stays the token's";
}

TEST_F(BeginAuthTest, TheTokenThatASessionNamesSurvivesTheSessionForItsCaller) {
  @autoreleasepool {
    Release(token_);
    Token *token = [session_ tsToken];
    Release(session_);
    EXPECT_EQ([token slotID], kSlot);
    EXPECT_THAT(Calls(), IsEmpty());
  }
  EXPECT_THAT(Calls(), ElementsAre("C_Finalize(NULL)")) << "nobody else held it";
}

TEST_F(BeginAuthTest, ASessionWhoseSuperclassFailsIsNone) {
  const NSUInteger before = [token_ retainCount];
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ([[TokenSession alloc] initWithToken:token_], nil);
  EXPECT_EQ([token_ retainCount], before);
}

TEST_F(BeginAuthTest, TheSessionsTokenCannotBeReplaced) {
  EXPECT_FALSE([session_ respondsToSelector:@selector(setTsToken:)]);
}

}  // namespace
}  // namespace token_testing
