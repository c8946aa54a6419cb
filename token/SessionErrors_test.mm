#import "token/SessionErrors.h"

#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

class SessionErrorsTest : public FoundationTest {};

TEST_F(SessionErrorsTest, AnErrorHasTheTokenDomainItsCodeAndOneDescription) {
  NSError *error = SessionError(TKErrorCodeObjectNotFound, @"Schlüssel fehlt.");
  EXPECT_TRUE([[error domain] isEqual:TKErrorDomain]);
  EXPECT_EQ([error code], -6);
  EXPECT_EQ([[error userInfo] count], 1u);
  EXPECT_EQ(Utf8([[error userInfo] objectForKey:NSLocalizedDescriptionKey]), "Schlüssel fehlt.");
  EXPECT_EQ(Utf8([error localizedDescription]), "Schlüssel fehlt.");
}

TEST_F(SessionErrorsTest, TheCodesAreThoseOfThePlatform) {
  EXPECT_EQ(TKErrorCodeCorruptedData, -3);
  EXPECT_EQ(TKErrorCodeObjectNotFound, -6);
  EXPECT_EQ(TKErrorCodeBadParameter, -8);
  EXPECT_EQ(TKErrorCodeAuthenticationNeeded, -9);
}

}  // namespace
}  // namespace token_testing
