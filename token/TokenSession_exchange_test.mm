// Agreeing keys: calls, log, and what is left out of both.
#include <string.h>

#import "platform/linux/ctk/TKHostInterface.h"
#include "tests/module/dirty_stack.h"
#include "token/testing/card_request.h"

#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#endif

namespace token_testing {
namespace {

using scripted::Bytes;
using scripted::Function;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const char kFindPrivateKey[] = "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=02})";

class ExchangeTest : public CardRequestTest {
 protected:
  ExchangeTest() : CardRequestTest(kExchange) { Answer(scripted::ToBytes("secret")); }
};

TEST_F(ExchangeTest, AFailedDerivationEndsTheLogWithItsResult) {
  lindel().Return(Function::C_DeriveKey, CKR_DOMAIN_PARAMS_INVALID);
  EXPECT_EQ(Run(), nil);
  EXPECT_THAT(lindel().Names(),
              ElementsAre("C_GetSessionInfo", "C_FindObjectsInit", "C_FindObjects", "C_DeriveKey"));
  EXPECT_THAT(
      Log(),
      ElementsAre("default: DeriveKey...", "default: otherPartyPublicKeyData len 3",
                  "default: DeriveKey mechanism CKM_ECDH1_DERIVE",
                  "error: PKCS11 function C_DeriveKey failed: rv = CKR_DOMAIN_PARAMS_INVALID "
                  "(0x130)",
                  "error: PKCS11 function derive_key failed: rv = CKR_DOMAIN_PARAMS_INVALID "
                  "(0x130)"));
  EXPECT_EQ(Text(error_), CardFailure());
}

TEST_F(ExchangeTest, ASecretTakesFiveCallsAndFourLines) {
  Timeline timeline(lindel());
  EXPECT_EQ(BytesOf(Run()), scripted::ToBytes("secret"));
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre("default: DeriveKey...", "default: otherPartyPublicKeyData len 3",
                  "C_GetSessionInfo(7, out)", kFindPrivateKey, "C_FindObjects(7, room[10], 10)",
                  "default: DeriveKey mechanism CKM_ECDH1_DERIVE",
                  StartsWith("C_DeriveKey(7, {0x1050 "), "C_GetAttributeValue(7, 17, {0x11[1024]})",
                  "default: DeriveKey war erfolgreich."));
  EXPECT_EQ(error_, untouched_);
  const scripted::Call derivation = lindel().At(Function::C_DeriveKey);
  EXPECT_EQ(derivation.arguments[2].number, kEcPrivateKey);
  EXPECT_EQ(derivation.arguments[3].address, nullptr);
}

TEST_F(ExchangeTest, TheOtherPartysDataGoesToTheCardAsItStands) {
  EXPECT_NE(Run(), nil);
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  const Bytes copy = lindel().At(Function::C_DeriveKey).arguments[1].bytes;
  ASSERT_EQ(copy.size(), sizeof parameters);
  memcpy(&parameters, copy.data(), sizeof parameters);
  EXPECT_EQ(parameters.pPublicData, [data_ bytes]);
  EXPECT_EQ(parameters.ulPublicDataLen, 3u);
  EXPECT_EQ(parameters.kdf, CK_ULONG{CKD_NULL});
  EXPECT_EQ(parameters.pSharedData, nullptr);
  EXPECT_EQ(parameters.ulSharedDataLen, 0u);
}

TEST_F(ExchangeTest, TheMechanismsNameIsPrivate) {
  EXPECT_NE(Run(), nil);
  EXPECT_THAT(Formats(), ElementsAre("DeriveKey...", "otherPartyPublicKeyData len %d",
                                     "DeriveKey mechanism %s", "DeriveKey war erfolgreich."));
  EXPECT_THAT(
      PublicLog(),
      ElementsAre("default: DeriveKey...", "default: otherPartyPublicKeyData len 3",
                  "default: DeriveKey mechanism <private>", "default: DeriveKey war erfolgreich."));
}

TEST_F(ExchangeTest, AnyMechanismIsNamedAndGoesToTheCard) {
  algorithm_ = Algorithm(kSecKeyAlgorithmECDHKeyExchangeStandard);
  EXPECT_NE(Run(), nil);
  EXPECT_THAT(Log(), Contains("default: DeriveKey mechanism Unknown"));
  EXPECT_EQ(lindel().At(Function::C_DeriveKey).arguments[1].number, ~CK_ULONG{0});
}

TEST_F(ExchangeTest, TheParametersAreNeverReadAndTheWholeSecretComesBack) {
  Answer(Bytes(32, 0x5A));
  parameters_ =
      [[[TKTokenKeyExchangeParameters alloc] initWithRequestedSize:16
                                                        sharedInfo:Data({1, 2})] autorelease];
  EXPECT_EQ(BytesOf(Run()), Bytes(32, 0x5A));
  // Any message to it would raise an exception.
  parameters_ = (TKTokenKeyExchangeParameters *)[[[NSObject alloc] init] autorelease];
  EXPECT_EQ(BytesOf(Run()), Bytes(32, 0x5A));
  parameters_ = nil;
  EXPECT_EQ(BytesOf(Run()), Bytes(32, 0x5A));
}

TEST_F(ExchangeTest, EveryDerivedObjectStaysInTheSession) {
  EXPECT_NE(Run(), nil);
  EXPECT_NE(Run(), nil);
  EXPECT_NE(card().FindObject(17), nullptr);
  EXPECT_NE(card().FindObject(18), nullptr);
}

TEST_F(ExchangeTest, WithTheLogOffTheMechanismIsNamedAllTheSame) {
  const oslog::Disabled off(OS_LOG_TYPE_DEFAULT);
  size_t names = 0;
  ReplacedP11 replaced;
  replaced.before_mech_to_str = [&](const char *) { ++names; };
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(names, 1u);
  EXPECT_THAT(Log(), IsEmpty());
}

// A room as large as the limit that mech_to_str works with would be the repair of this.
TEST_F(ExchangeTest, TheNameGoesIntoAZeroedRoomOf100BytesThoughMechToStrTakesItFor1024) {
  ReplacedP11 replaced;
  size_t names = 0;
  replaced.before_mech_to_str = [&](const char *name) {
    ++names;
    for (size_t i = 0; i < 100; ++i) ASSERT_EQ(name[i], 0) << i;
#if __has_feature(address_sanitizer)
    EXPECT_FALSE(__asan_address_is_poisoned(name + 99));
    EXPECT_TRUE(__asan_address_is_poisoned(name + 100));
#endif
  };
  scripted::DirtyStack();
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(names, 1u);
  EXPECT_EQ(wrapped::calls().strlcpy_size, 1024u);
}

}  // namespace
}  // namespace token_testing
