// Cards that come and go, one and two at a time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

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
  const RealCard real;
  for (int round = 0; round < 3; ++round) {
    {
      const Inserted card(real.bundle());
      ASSERT_EQ(initialized, 1);
      @autoreleasepool {  // getters leave what they return in the pool, the token too
        EXPECT_FALSE(SignsWithEcKey(real, card.session(), "before the PIN"));
        EXPECT_TRUE(Login(card.session(), real.card().pin()));
        EXPECT_TRUE(SignsWithEcKey(real, card.session(), "after the PIN"));
      }
    }
    EXPECT_EQ(initialized, 0);
  }
}

TEST(CardLifecycle, SessionOutlivesRemovalAndKeepsItsTokenAlive) {
  RealCard real;
  {
    Inserted card(real.bundle());
    @autoreleasepool {
      EXPECT_TRUE(Login(card.session(), real.card().pin()));
    }
    card.Remove();
    EXPECT_EQ(initialized, 1);
    @autoreleasepool {
      EXPECT_TRUE(SignsWithEcKey(real, card.session(), "the host has let go of the token"));
    }
  }
  EXPECT_EQ(initialized, 0);
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
}

TEST(CardLifecycle, SecondTokenSharesTheModuleAndItsLogin) {
  const RealCard real;
  const Inserted first(real.bundle());
  const Inserted second(real.bundle());
  EXPECT_EQ(initialized, 1);
  ASSERT_TRUE(Login(first.session(), real.card().pin()));
  EXPECT_TRUE(SignsWithEcKey(real, first.session(), "first"));
  EXPECT_TRUE(SignsWithEcKey(real, second.session(), "second"));
}

// Both tokens meet the same card: the configured reader is one, and so is the module.
TEST(CardLifecycle, RemovingOneCardFinalisesTheOtherWhichComesBackWithThePin) {
  RealCard real;
  std::optional<Inserted> removed(real.bundle());
  std::optional<Inserted> kept(real.bundle());
  TokenSession *session = kept->session();
  @autoreleasepool {
    EXPECT_TRUE(Login(session, real.card().pin()));
    EXPECT_TRUE(SignsWithEcKey(real, session, "both are there"));
  }

  real.recorder().clear();
  removed.reset();
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
  EXPECT_EQ(initialized, 0);
  real.recorder().clear();
  @autoreleasepool {
    EXPECT_FALSE(SignsWithEcKey(real, session, "the module is finalised under it"));
    EXPECT_TRUE(Supports(session, TKTokenOperationSignData, EcKey(),
                         kSecKeyAlgorithmECDSASignatureDigestX962));
    EXPECT_THAT(real.recorder().texts(),
                IsSupersetOf({"Token ist NICHT initialisiert, Initialisierung starten...",
                              "Session erfolgreich initialisiert.", "RETURN YES."}));
    // The token holds a module, so none is loaded.
    EXPECT_THAT(real.recorder().texts(), Not(Contains("PKCS11-Modul wurde geladen.")));
    EXPECT_EQ(initialized, 1);
    EXPECT_NE([kept->token() session], CK_INVALID_HANDLE);

    EXPECT_FALSE(SignsWithEcKey(real, session, "the PIN is needed again"));
    EXPECT_TRUE(Login(session, real.card().pin()));
    EXPECT_TRUE(SignsWithEcKey(real, session, "and there it is"));
  }
  kept.reset();
  EXPECT_THAT(real.recorder().texts(), Contains(kFinalised));
}

TEST(CardLifecycle, TokenWithoutAModuleComesUpByTheSecondName) {
  const RealCard real;
  const auto lindel = real.bundle() / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib";
  std::filesystem::rename(lindel, real.bundle() / "not yet there");
  const Inserted card(real.bundle());
  std::filesystem::rename(real.bundle() / "not yet there", lindel);
  EXPECT_EQ(initialized, 0);
  EXPECT_EQ([card.token() p11], nullptr);
  EXPECT_TRUE(Supports(card.session(), TKTokenOperationSignData, EcKey(),
                       kSecKeyAlgorithmECDSASignatureDigestX962));
  EXPECT_EQ(initialized, 1);
  ASSERT_TRUE(Login(card.session(), real.card().pin()));
  EXPECT_TRUE(SignsWithEcKey(real, card.session(), "through the second name"));
}

}  // namespace
}  // namespace endtoend
