// Cards that come and go, one and two at a time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;

// What a token's teardown logs.
constexpr char kFinalised[] = "(dealloc) C_Finalize aufgerufen.";

TEST(CardLifecycle, ReinsertedCardWorksAndWantsThePinAgain) {
  RealCard real;
  for (int round = 0; round < 3; ++round) {
    Token *token = real.Insert();
    ASSERT_EQ(initialized, 1);
    TokenSession *session = MakeSession(token);
    @autoreleasepool {  // getters leave what they return in the pool, the token too
      EXPECT_FALSE(SignsWithEcKey(real, session, "before the PIN"));
      EXPECT_TRUE(Login(session, real.card().pin()));
      EXPECT_TRUE(SignsWithEcKey(real, session, "after the PIN"));
    }
    [session release];
    [token release];
    EXPECT_EQ(initialized, 0);
  }
}

TEST(CardLifecycle, SessionOutlivesRemovalAndKeepsItsTokenAlive) {
  RealCard real;
  Token *token = real.Insert();
  TokenSession *session = MakeSession(token);
  @autoreleasepool {
    EXPECT_TRUE(Login(session, real.card().pin()));
  }
  [token release];
  EXPECT_EQ(initialized, 1);
  @autoreleasepool {
    EXPECT_TRUE(SignsWithEcKey(real, session, "the host has let go of the token"));
  }
  [session release];
  EXPECT_EQ(initialized, 0);
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
}

TEST(CardLifecycle, SecondTokenSharesTheModuleAndItsLogin) {
  RealCard real;
  Token *first = real.Insert();
  Token *second = real.Insert();
  EXPECT_EQ(initialized, 1);
  TokenSession *session = MakeSession(first);
  TokenSession *other = MakeSession(second);
  ASSERT_TRUE(Login(session, real.card().pin()));
  EXPECT_TRUE(SignsWithEcKey(real, session, "first"));
  EXPECT_TRUE(SignsWithEcKey(real, other, "second"));
  [session release];
  [other release];
  [second release];
  [first release];
}

// Both tokens meet the same card: the configured reader is one, and so is the module.
TEST(CardLifecycle, RemovingOneCardFinalisesTheOtherWhichComesBackWithThePin) {
  RealCard real;
  Token *removed = real.Insert();
  Token *kept = real.Insert();
  TokenSession *session = MakeSession(kept);
  @autoreleasepool {
    EXPECT_TRUE(Login(session, real.card().pin()));
    EXPECT_TRUE(SignsWithEcKey(real, session, "both are there"));
  }

  real.recorder().clear();
  [removed release];
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
  EXPECT_EQ(initialized, 0);
  @autoreleasepool {
    EXPECT_FALSE(SignsWithEcKey(real, session, "the module is finalised under it"));
  }

  real.recorder().clear();
  @autoreleasepool {
    EXPECT_TRUE(Supports(session, TKTokenOperationSignData, EcKey(),
                         kSecKeyAlgorithmECDSASignatureDigestX962));
    EXPECT_THAT(real.recorder().texts(),
                IsSupersetOf({"Token ist NICHT initialisiert, Initialisierung starten...",
                              "Session erfolgreich initialisiert.", "RETURN YES."}));
    // The token holds a module, so none is loaded.
    EXPECT_THAT(real.recorder().texts(), Not(Contains("PKCS11-Modul wurde geladen.")));
    EXPECT_EQ(initialized, 1);
    EXPECT_NE([kept session], CK_INVALID_HANDLE);

    EXPECT_FALSE(SignsWithEcKey(real, session, "the PIN is needed again"));
    EXPECT_TRUE(Login(session, real.card().pin()));
    EXPECT_TRUE(SignsWithEcKey(real, session, "and there it is"));
  }
  [session release];
  [kept release];
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
}

TEST(CardLifecycle, TokenWithoutAModuleComesUpByTheSecondName) {
  RealCard real;
  const auto lindel = real.bundle() / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib";
  std::filesystem::rename(lindel, real.bundle() / "not yet there");
  Token *token = real.Insert();
  std::filesystem::rename(real.bundle() / "not yet there", lindel);
  ASSERT_NE(token, nil);
  EXPECT_EQ(initialized, 0);
  EXPECT_EQ([token p11], nullptr);
  TokenSession *session = MakeSession(token);
  EXPECT_TRUE(Supports(session, TKTokenOperationSignData, EcKey(),
                       kSecKeyAlgorithmECDSASignatureDigestX962));
  EXPECT_EQ(initialized, 1);
  ASSERT_TRUE(Login(session, real.card().pin()));
  EXPECT_TRUE(SignsWithEcKey(real, session, "through the second name"));
  [session release];
  [token release];
}

}  // namespace
}  // namespace endtoend
