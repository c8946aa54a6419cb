// Agreeing keys: calls, log, and what is left out of both.
#include <string.h>

#import "platform/linux/ctk/TKHostInterface.h"
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
using testing::SizeIs;
using testing::StartsWith;

const char kFindKey[] = "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=02})";

class ExchangeTest : public CardRequestTest {
 protected:
  ExchangeTest() : CardRequestTest(kExchange) { Answer(scripted::ToBytes("secret")); }

  CK_ECDH1_DERIVE_PARAMS Parameters() {
    const scripted::Argument mechanism = lindel().At(Function::C_DeriveKey).arguments[1];
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    EXPECT_EQ(mechanism.bytes.size(), sizeof parameters);
    memcpy(&parameters, mechanism.bytes.data(), sizeof parameters);
    return parameters;
  }
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
  EXPECT_EQ(Text(error_), "TKErrorDomain -3 {NSLocalizedDescription: Fehler beim DeriveKey.}");
}

TEST_F(ExchangeTest, ASecretThatCannotBeReadIsAFailureWithoutASecret) {
  lindel().Return(Function::C_GetAttributeValue, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_), "TKErrorDomain -3 {NSLocalizedDescription: Fehler beim DeriveKey.}");
}

TEST_F(ExchangeTest, ASecretTakesFiveCallsAndFourLines) {
  Timeline timeline(lindel());
  EXPECT_EQ(BytesOf(Run()), scripted::ToBytes("secret"));
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre("default: DeriveKey...", "default: otherPartyPublicKeyData len 3",
                  "C_GetSessionInfo(7, out)", kFindKey, "C_FindObjects(7, room[10], 10)",
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
  EXPECT_EQ(Parameters().pPublicData, [data_ bytes]);
  EXPECT_EQ(Parameters().ulPublicDataLen, 3u);
  EXPECT_EQ(Parameters().kdf, CK_ULONG{CKD_NULL});
  EXPECT_EQ(Parameters().pSharedData, nullptr);
  EXPECT_EQ(Parameters().ulSharedDataLen, 0u);
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

TEST_F(ExchangeTest, NeitherTheSecretNorTheOtherPartysDataReachesTheLog) {
  data_ = Data(scripted::ToBytes("gegenstelle"));
  Answer(scripted::ToBytes("geheimnis"));
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  EXPECT_NE(Run(), nil);
  lindel().Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Run(), nil);
  for (const char *secret :
       {"gegenstelle", "geheimnis", "676567656e7374656c6c65", "67656865696d6e6973"}) {
    EXPECT_FALSE(LogContains(secret)) << secret;
  }
  EXPECT_EQ([session hexTexts], 0u);
}

TEST_F(ExchangeTest, TheAlgorithmIsNotNamed) {
  AskedAlgorithm *algorithm = AskedString(@"algid:keyexchange:nobody");
  algorithm_ = algorithm;
  EXPECT_NE(Run(), nil);
  EXPECT_THAT([algorithm asked], SizeIs(7)) << "get_mechanism alone";
}

TEST_F(ExchangeTest, EmptyDataIsLoggedAndGoesToTheCard) {
  data_ = [NSData data];
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(Log().at(1), "default: otherPartyPublicKeyData len 0");
  EXPECT_EQ(Parameters().ulPublicDataLen, 0u);
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
  DirtyStack();
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(names, 1u);
  EXPECT_EQ(wrapped::calls().strlcpy_size, 1024u);
}

}  // namespace
}  // namespace token_testing
