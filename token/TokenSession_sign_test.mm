// Signing: calls, log and the mechanism's name.
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
using testing::SizeIs;

class SignTest : public CardRequestTest {
 protected:
  SignTest() : CardRequestTest(kSign) { Answer({0x00, 0xAB, 0x7F}); }
};

TEST_F(SignTest, AFailureOfTheCardEndsTheLogWithItsResult) {
  lindel().Return(Function::C_Sign, CKR_DATA_LEN_RANGE);
  Timeline timeline(lindel());
  EXPECT_EQ(Run(), nil);
  EXPECT_THAT(timeline.Take(),
              ElementsAre("default: Signieren...", "default: dataToSign len 3",
                          "default: dataToSign bytes  616263", "C_GetSessionInfo(7, out)",
                          "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=01})",
                          "C_FindObjects(7, room[10], 10)",
                          "default: (SIGN) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
                          "default: Mechanism CKM_RSA_X_509 (0x3)\n", "C_SignInit(7, {0x3}, 13)",
                          "C_Sign(7, <616263>, room[1024])",
                          "error: PKCS11 function C_Sign failed: rv = CKR_DATA_LEN_RANGE (0x21)",
                          "error: PKCS11 function sign failed: rv = CKR_DATA_LEN_RANGE (0x21)"));
  EXPECT_EQ(Text(error_), CardFailure());
}

TEST_F(SignTest, FailuresBeforeTheCardLogNothingOfTheAlgorithm) {
  const std::vector<std::string> request = {"default: Signieren...", "default: dataToSign len 3",
                                            "default: dataToSign bytes  616263"};
  card().session_state = CKS_RW_PUBLIC_SESSION;
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Log(), request);
  card().session_state = CKS_RW_USER_FUNCTIONS;
  lindel().Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  Forget();
  EXPECT_EQ(Run(), nil);
  EXPECT_THAT(Log(), SizeIs(5));
}

TEST_F(SignTest, ASignatureTakesFiveCallsAndTheseLines) {
  Timeline timeline(lindel());
  EXPECT_EQ(BytesOf(Run()), (Bytes{0x00, 0xAB, 0x7F}));
  EXPECT_THAT(timeline.Take(),
              ElementsAre("default: Signieren...", "default: dataToSign len 3",
                          "default: dataToSign bytes  616263", "C_GetSessionInfo(7, out)",
                          "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=01})",
                          "C_FindObjects(7, room[10], 10)",
                          "default: (SIGN) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw",
                          "default: Mechanism CKM_RSA_X_509 (0x3)\n", "C_SignInit(7, {0x3}, 13)",
                          "C_Sign(7, <616263>, room[1024])", "default: sigLen 3",
                          "default: Signaturerstellung war erfolgreich.",
                          "default: signature len 3", "default: signature bytes  00AB7F"));
  EXPECT_EQ(error_, untouched_);
}

TEST_F(SignTest, DataSignatureAndMechanismArePublicAndTheAlgorithmsNameIsNot) {
  Run();
  EXPECT_THAT(Formats(),
              ElementsAre("Signieren...", "dataToSign len %d", "dataToSign bytes  %{public}@",
                          "(SIGN) TKTokenKeyAlgorithm %s", "Mechanism %{public}s (0x%X)\n",
                          "sigLen %d", "Signaturerstellung war erfolgreich.", "signature len %d",
                          "signature bytes  %{public}@"));
  EXPECT_THAT(PublicLog(),
              ElementsAre("default: Signieren...", "default: dataToSign len 3",
                          "default: dataToSign bytes  616263",
                          "default: (SIGN) TKTokenKeyAlgorithm <private>",
                          "default: Mechanism CKM_RSA_X_509 (0x3)\n", "default: sigLen 3",
                          "default: Signaturerstellung war erfolgreich.",
                          "default: signature len 3", "default: signature bytes  00AB7F"));
}

TEST_F(SignTest, AnEllipticCurveSignatureKeepsItsRawForm) {
  key_ = KeyObjectID(kEcId);
  algorithm_ = Algorithm(kSecKeyAlgorithmECDSASignatureDigestX962);
  Bytes raw(64, 0x80);
  raw[0] = 0;  // a DER form would drop it
  Answer(raw);
  EXPECT_EQ(BytesOf(Run()), raw);
  EXPECT_EQ(lindel().At(Function::C_SignInit).Text(), "C_SignInit(7, {0x1041}, 16)");
}

TEST_F(SignTest, AnEllipticCurveSignatureKeepsItsDerForm) {
  const Bytes der = {0x30, 0x06, 0x02, 0x01, 0x01, 0x02, 0x01, 0x02};
  Answer(der);
  algorithm_ = Algorithm(kSecKeyAlgorithmECDSASignatureDigestX962SHA1);
  EXPECT_EQ(BytesOf(Run()), der);
  EXPECT_EQ(lindel().At(Function::C_SignInit).arguments[1].number, 0x1042u);
}

TEST_F(SignTest, TheMechanismDoesNotDependOnTheOperation) {
  algorithm_ = Algorithm(kSecKeyAlgorithmRSAEncryptionPKCS1);
  Run();
  EXPECT_EQ(lindel().At(Function::C_SignInit).Text(), "C_SignInit(7, {0x1}, 13)");
  EXPECT_THAT(Log(), Contains("default: Mechanism CKM_RSA_PKCS (0x1)\n"));
}

TEST_F(SignTest, NoMechanismIsShownAsItsLowThirtyTwoBits) {
  algorithm_ = Algorithm(kSecKeyAlgorithmRSASignatureMessagePSSSHA256);
  Run();
  EXPECT_THAT(Log(), Contains("default: Mechanism Unknown (0xFFFFFFFF)\n"));
  EXPECT_THAT(Log(), Contains("default: (SIGN) TKTokenKeyAlgorithm "
                              "kSecKeyAlgorithmRSASignatureMessagePSSSHA256"));
}

TEST_F(SignTest, AnUnknownAlgorithmIsLoggedAsSuch) {
  algorithm_ = AskedString(@"algid:sign:RSA:raw-cc");
  Run();
  EXPECT_THAT(Log(), Contains("default: (SIGN) TKTokenKeyAlgorithm Unknown algorithm"));
}

TEST_F(SignTest, EmptyDataAndAnEmptySignatureAreLogged) {
  data_ = [NSData data];
  Answer({});
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(Log().at(2), "default: dataToSign bytes  ");
  EXPECT_EQ(Log().back(), "default: signature bytes  ");
  EXPECT_THAT(Log(), Contains("default: sigLen 0"));
  EXPECT_THAT(Log(), Contains("default: signature len 0"));
}

TEST_F(SignTest, WithoutDataForTheSignatureTheLogEndsWithItsLength) {
  const ReplacedData none(nil);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Log().back(), "default: sigLen 3");
}

TEST_F(SignTest, TheSignaturesLengthIsThatOfItsData) {
  session_ = Session([HexlessSession class]);
  NSData *claiming = [ClaimingData dataOfLength:0x80000005];
  const ReplacedData replaced(claiming);
  EXPECT_EQ(Run(), claiming);
  EXPECT_THAT(Log(), Contains("default: sigLen 3"));
  EXPECT_THAT(Log(), Contains("default: signature len -2147483643"));
}

TEST_F(SignTest, HexTextIsMadeTwiceAndOnlyForTheLog) {
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  Run();
  EXPECT_EQ([session hexTexts], 2u);
  session_ = Session([HexlessSession class]);
  Run();
  EXPECT_EQ(Log().back(), "default: signature bytes  none") << "through asHex:";
}

TEST_F(SignTest, WithTheLogOffTheMechanismIsNamedAllTheSame) {
  const oslog::Disabled off(OS_LOG_TYPE_DEFAULT);
  Run();
  EXPECT_EQ(wrapped::calls().strlcpy_size, 1024u);
}

TEST_F(SignTest, TheMechanismsNameGoesIntoAZeroedRoomOf1024Bytes) {
  ReplacedP11 replaced;
  size_t names = 0;
  replaced.before_mech_to_str = [&](const char *name) {
    ++names;
    for (size_t i = 0; i < 1024; ++i) ASSERT_EQ(name[i], 0) << i;
#if __has_feature(address_sanitizer)
    EXPECT_FALSE(__asan_address_is_poisoned(name + 1023));
    EXPECT_TRUE(__asan_address_is_poisoned(name + 1024));
#endif
  };
  scripted::DirtyStack();
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(names, 1u);
}

TEST_F(SignTest, TheMechanismIsDecidedBeforeTheAlgorithmIsNamed) {
  AskedAlgorithm *algorithm = AskedString(@"algid:sign:nobody");
  algorithm_ = algorithm;
  Run();
  const std::vector<std::string> asked = [algorithm asked];
  ASSERT_THAT(asked, SizeIs(7 + 76));
  EXPECT_EQ(asked[0], Utf8((NSString *)kSecKeyAlgorithmRSAEncryptionRaw));
  EXPECT_EQ(asked[6], Utf8((NSString *)kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1));
  EXPECT_EQ(asked[7], Utf8((NSString *)kSecKeyAlgorithmECIESEncryptionStandardX963SHA1AESGCM));
}

TEST_F(SignTest, OnlyAnErrorLineNamesAResult) {
  Run();
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
}

}  // namespace
}  // namespace token_testing
