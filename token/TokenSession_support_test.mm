// Which operations a key supports: the search for the key, and its usage flags.
#include "token/testing/session_fixture.h"

namespace token_testing {
namespace {

using scripted::Function;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

const char kFindRsa[] = "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=01})";
const char kFindEc[] = "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=02})";
const char kFound[] = "C_FindObjects(7, room[10], 10)";

class SupportTest : public SessionTest {
 protected:
  SupportTest() : algorithm_(Algorithm(kSecKeyAlgorithmRSASignatureRaw)) {}

  BOOL Supports(NSInteger operation) {
    return [session_ tokenSession:session_
                supportsOperation:static_cast<TKTokenOperation>(operation)
                         usingKey:key_
                        algorithm:algorithm_];
  }
  BOOL Signs() { return Supports(TKTokenOperationSignData); }
  BOOL Decrypts() { return Supports(TKTokenOperationDecryptData); }
  scripted::Object &PublicKey() { return *card().FindObject(kRsaPublicKey); }
  scripted::Object &PrivateKey() { return *card().FindObject(kRsaPrivateKey); }
  // Takes an attribute from the public key, or gives it this value.
  void SetFlag(CK_ATTRIBUTE_TYPE type, int value) {
    PublicKey().attributes.erase(type);
    if (value >= 0) PublicKey().Set(type, {static_cast<CK_BYTE>(value)});
  }

  NSData *key_ = KeyObjectID(kRsaId);
  TKTokenKeyAlgorithm *algorithm_;
};

TEST_F(SupportTest, AFailedSearchIsLoggedAndAnsweredWithNo) {
  lindel().Return(Function::C_FindObjectsInit, CKR_DEVICE_ERROR);
  EXPECT_FALSE(Signs());
  EXPECT_THAT(Calls(), ElementsAre(kFindRsa));
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm "
                                 "kSecKeyAlgorithmRSASignatureRaw",
                                 "error: PKCS11 function C_FindObjectsInit: CKO_PUBLIC_KEY failed: "
                                 "rv = CKR_DEVICE_ERROR (0x30)",
                                 "error: Öff. Schlüssel nicht gefunden."));
}

TEST_F(SupportTest, AnyResultOfTheSearchButOkIsAFailure) {
  for (CK_RV result : {CK_RV{CKR_SESSION_HANDLE_INVALID}, CK_RV{CKR_OPERATION_ACTIVE},
                       CK_RV{0x80000000}, CK_RV{0x100000000}}) {
    Forget();
    lindel().Return(Function::C_FindObjects, result);
    EXPECT_FALSE(Signs());
    EXPECT_THAT(Calls(), ElementsAre(kFindRsa, kFound));
    EXPECT_EQ(Log().back(), "error: Öff. Schlüssel nicht gefunden.");
  }
}

TEST_F(SupportTest, AKeyThatIsNotThereIsAskedForItsFlagsAllTheSame) {
  key_ = KeyObjectID({0x09});
  EXPECT_FALSE(Signs());
  EXPECT_THAT(Calls(), ElementsAre("C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=09})", kFound,
                                   "C_GetAttributeValue(7, 0, {0x10a[1024]})"));
  EXPECT_THAT(Log(), Not(Contains("error: Öff. Schlüssel nicht gefunden.")));
}

TEST_F(SupportTest, AFailedReadOfAFlagCountsAsNo) {
  PublicKey().Refuse(CKA_VERIFY, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_FALSE(Signs());
  EXPECT_THAT(Calls(), ElementsAre(kFindRsa, kFound, "C_GetAttributeValue(7, 12, {0x10a[1024]})"));
  EXPECT_EQ(Log().back(), "error: PKCS11 function C_GetAttributeValue: is_attr_supported failed: "
                          "rv = CKR_ATTRIBUTE_SENSITIVE (0x11)");
  PublicKey().Refuse(CKA_ENCRYPT, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_TRUE(Decrypts()) << "the other flag is read nevertheless";
  PublicKey().Refuse(CKA_WRAP, CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_FALSE(Decrypts());
}

TEST_F(SupportTest, DecryptionReadsBothItsFlagsInOrderWhateverTheFirstSays) {
  EXPECT_TRUE(Decrypts());
  EXPECT_THAT(Calls(), ElementsAre(kFindRsa, kFound, "C_GetAttributeValue(7, 12, {0x104[1024]})",
                                   "C_GetAttributeValue(7, 12, {0x106[1024]})",
                                   "C_GetAttributeValue(7, 12, {0x40000600[1024]})"));
}

TEST_F(SupportTest, KeyExchangeIsNeverSupportedThoughTheKeyCanDeriveAndAllowsTheMechanism) {
  key_ = KeyObjectID(kEcId);
  algorithm_ = Algorithm(kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1);
  ASSERT_EQ(card().FindObject(kEcPublicKey)->attributes[CKA_DERIVE].bytes, scripted::Bytes{1});
  EXPECT_FALSE(Supports(TKTokenOperationPerformKeyExchange));
  EXPECT_THAT(Calls(), ElementsAre(kFindEc, kFound, "C_GetAttributeValue(7, 15, {0x10c[1024]})"));
  EXPECT_THAT(Log(), ElementsAre("default: (BOOL) TKTokenKeyAlgorithm "
                                 "kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1"));
  EXPECT_TRUE(Signs()) << "the mechanism itself is allowed";
}

TEST_F(SupportTest, OtherOperationsReadNoAttribute) {
  for (NSInteger operation : {0, 1, 5, 6, -1, 0x102}) {
    Forget();
    EXPECT_FALSE(Supports(operation)) << operation;
    EXPECT_THAT(Calls(), ElementsAre(kFindRsa, kFound)) << operation;
    EXPECT_EQ(Log().size(), 1u);
  }
}

TEST_F(SupportTest, SigningTakesExactlyTrue) {
  for (int value : {-1, 0, 2, 0x80, 0xFF}) {
    SetFlag(CKA_VERIFY, value);
    EXPECT_FALSE(Signs()) << value;
  }
  SetFlag(CKA_VERIFY, 1);
  EXPECT_TRUE(Signs());
}

TEST_F(SupportTest, DecryptionTakesExactlyTrueInOneFlagOfTheTwo) {
  for (int encrypt : {-1, 0, 1, 2, 0xFF}) {
    for (int wrap : {-1, 0, 1, 2, 0xFF}) {
      SetFlag(CKA_ENCRYPT, encrypt);
      SetFlag(CKA_WRAP, wrap);
      EXPECT_EQ(Decrypts() != NO, encrypt == 1 || wrap == 1) << encrypt << " " << wrap;
    }
  }
}

TEST_F(SupportTest, AnEmptyFlagIsNo) {
  PublicKey().Set(CKA_VERIFY, {});
  EXPECT_FALSE(Signs());
}

TEST_F(SupportTest, ANoOfTheFlagsEndsTheCheckWithoutAWord) {
  SetFlag(CKA_VERIFY, 0);
  EXPECT_FALSE(Signs());
  EXPECT_EQ(Calls().size(), 3u);
  EXPECT_EQ(Log().size(), 1u);
  Forget();
  SetFlag(CKA_ENCRYPT, 0);
  SetFlag(CKA_WRAP, 0);
  EXPECT_FALSE(Decrypts());
  EXPECT_EQ(Calls().size(), 4u);
  EXPECT_EQ(Log().size(), 1u);
}

TEST_F(SupportTest, TheFlagsAreThePublicKeysAndThePrivateKeyIsNotLookedAt) {
  PrivateKey().SetFlag(CKA_SIGN, false).SetFlag(CKA_VERIFY, false).SetMechanisms({});
  EXPECT_TRUE(Signs());
  PrivateKey().SetFlag(CKA_SIGN, true).SetFlag(CKA_VERIFY, true).SetMechanisms({CKM_RSA_X_509});
  PublicKey().SetFlag(CKA_SIGN, true);
  SetFlag(CKA_VERIFY, 0);
  EXPECT_FALSE(Signs());
  for (const scripted::Call &call : lindel().calls()) {
    if (call.function != Function::C_GetAttributeValue) continue;
    EXPECT_EQ(call.arguments[1].number, kRsaPublicKey);
  }
}

TEST_F(SupportTest, TheKindOfTheObjectIDIsNotLookedAt) {
  key_ = Data({1, 0x01});  // the certificate's
  EXPECT_TRUE(Signs());
  EXPECT_EQ(Calls().front(), kFindRsa);
}

TEST_F(SupportTest, AnEmptyObjectIDSearchesForAnEmptyCkaId) {
  key_ = [NSData data];
  EXPECT_FALSE(Signs());
  EXPECT_EQ(Calls().front(), "C_FindObjectsInit(7, {0x0=0200000000000000, 0x102=})");
}

TEST_F(SupportTest, ALongCkaIdIsSearchedForWhole) {
  key_ = KeyObjectID(scripted::Bytes(500, 0xAB));
  Signs();
  EXPECT_EQ(lindel().At(Function::C_FindObjectsInit).arguments[1].attributes[1].bytes,
            scripted::Bytes(500, 0xAB));
}

TEST_F(SupportTest, TheSessionArgumentIsNotConsulted) {
  for (id argument : {(id)nil, (id)[[[NSObject alloc] init] autorelease]}) {
    EXPECT_TRUE([session_ tokenSession:(TKTokenSession *)argument
                     supportsOperation:TKTokenOperationSignData
                              usingKey:key_
                             algorithm:algorithm_]);
  }
}

TEST_F(SupportTest, TheTokensSessionAndListAreReadAtEveryUse) {
  lindel().Observe([this](const scripted::Call &call) {
    if (call.function == Function::C_FindObjects) [token_ setSession:70];
    if (call.function != Function::C_GetAttributeValue) return;
    [token_ setSession:71];
    [token_ setP11:vumo().functions()];
  });
  EXPECT_TRUE(Signs());
  EXPECT_THAT(Calls(), ElementsAre(kFindRsa, kFound, "C_GetAttributeValue(70, 12, {0x10a[1024]})"));
  EXPECT_THAT(vumo().Texts(), ElementsAre("C_GetAttributeValue(71, 12, {0x40000600[1024]})"));
  [token_ setP11:lindel().functions()];
}

TEST_F(SupportTest, TheTokenIsAskedForTwiceForEachCallOfTheCard) {
  const std::pair<TKTokenOperation, size_t> kReads[] = {
      {TKTokenOperationSignData, 6},            // search, one flag, allowed mechanisms
      {TKTokenOperationDecryptData, 8},         // two flags
      {TKTokenOperationPerformKeyExchange, 4},  // search and flag
  };
  for (const auto &[operation, reads] : kReads) {
    CountingSession *session = Session([CountingSession class]);
    session_ = session;
    Supports(operation);
    EXPECT_EQ([session tokenReads], reads) << operation;
  }
}

TEST_F(SupportTest, NoSearchIsFinishedAndNobodyIsLoggedIn) {
  card().session_state = CKS_RW_PUBLIC_SESSION;
  EXPECT_TRUE(Signs());
  EXPECT_TRUE(Decrypts());
  for (Function function : {Function::C_FindObjectsFinal, Function::C_GetSessionInfo,
                            Function::C_Login, Function::C_Logout, Function::C_CloseSession}) {
    EXPECT_EQ(lindel().Count(function), 0u) << scripted::FunctionName(function);
  }
}

TEST_F(SupportTest, ASignatureTakesFourCallsAndTwoLinesInThisOrder) {
  Timeline timeline(lindel());
  EXPECT_TRUE(Signs());
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre("default: (BOOL) TKTokenKeyAlgorithm kSecKeyAlgorithmRSASignatureRaw", kFindRsa,
                  kFound, "C_GetAttributeValue(7, 12, {0x10a[1024]})",
                  "C_GetAttributeValue(7, 12, {0x40000600[1024]})", "default: RETURN YES."));
}

}  // namespace
}  // namespace token_testing
