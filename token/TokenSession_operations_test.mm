// What signing, decrypting and agreeing keys have in common.
#include "token/testing/card_request.h"

namespace token_testing {
namespace {

using scripted::Bytes;
using scripted::Function;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RequestTest : public CardRequestTest, public testing::WithParamInterface<CardRequest> {
 protected:
  RequestTest() : CardRequestTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(All, RequestTest, testing::ValuesIn(kCardRequests),
                         [](const auto &info) { return info.param.name; });

TEST_P(RequestTest, WithoutALoginTheCardIsNotTouched) {
  card().session_state = CKS_RW_PUBLIC_SESSION;
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_),
            "TKErrorDomain -9 {NSLocalizedDescription: Authentifizierung erforderlich.}");
  EXPECT_THAT(Calls(), ElementsAre("C_GetSessionInfo(7, out)"));
  for (const oslog::Line &line : recorder().lines()) {
    EXPECT_EQ(line.type, OS_LOG_TYPE_DEFAULT) << "no line of its own";
  }
}

TEST_P(RequestTest, OnlyLoggedInStatesNeedNoLogin) {
  const std::pair<CK_STATE, bool> kStates[] = {
      {CKS_RO_PUBLIC_SESSION, false}, {CKS_RO_USER_FUNCTIONS, true}, {CKS_RW_PUBLIC_SESSION, false},
      {CKS_RW_USER_FUNCTIONS, true},  {CKS_RW_SO_FUNCTIONS, true},   {99, false}};
  for (const auto &[state, logged_in] : kStates) {
    card().session_state = state;
    EXPECT_EQ(Run() != nil, logged_in) << state;
  }
}

TEST_P(RequestTest, AFailedLoginTestMeansThatALoginIsNeeded) {
  lindel().Return(Function::C_GetSessionInfo, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ([error_ code], -9);
  EXPECT_THAT(Calls(), ElementsAre("C_GetSessionInfo(7, out)"));
  EXPECT_EQ(Log().back(), "error: PKCS11 function C_GetSessionInfo failed: rv = CKR_DEVICE_ERROR "
                          "(0x30)");
}

TEST_P(RequestTest, TheLoginTestsFlagAloneDecidesAndNotItsResult) {
  ReplacedP11 replaced;
  replaced.login_required = [](CK_BBOOL *required) {
    *required = 0;
    return CK_RV{CKR_GENERAL_ERROR};
  };
  EXPECT_NE(Run(), nil);
  for (CK_BBOOL flag : {CK_BBOOL{1}, CK_BBOOL{2}, CK_BBOOL{0xFF}}) {
    replaced.login_required = [flag](CK_BBOOL *required) {
      *required = flag;
      return CK_RV{CKR_OK};
    };
    EXPECT_EQ(Run(), nil);
    EXPECT_EQ([error_ code], -9);
  }
}

TEST_P(RequestTest, AFailedSearchIsAMissingKey) {
  lindel().Return(Function::C_FindObjectsInit, CKR_SESSION_CLOSED);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_),
            "TKErrorDomain -6 {NSLocalizedDescription: Privater Schlüssel nicht gefunden.}");
  EXPECT_THAT(lindel().Names(), ElementsAre("C_GetSessionInfo", "C_FindObjectsInit"));
  EXPECT_THAT(Errors(),
              ElementsAre("error: PKCS11 function C_FindObjectsInit: CKO_PRIVATE_KEY failed: rv = "
                          "CKR_SESSION_CLOSED (0xb0)",
                          "error: PKCS11 function get_priv_key failed: rv = CKR_SESSION_CLOSED "
                          "(0xb0)"));
  lindel().Return(Function::C_FindObjectsInit, CKR_OK, scripted::Effect::kPerform);
  lindel().Return(Function::C_FindObjects, 0x100000000);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ([error_ code], -6);
}

TEST_P(RequestTest, NoMechanismIsAskedForBeforeTheKeyIsFound) {
  AskedAlgorithm *algorithm = AskedString(@"algid:sign:nobody");
  algorithm_ = algorithm;
  card().session_state = CKS_RW_PUBLIC_SESSION;
  EXPECT_EQ(Run(), nil);
  card().session_state = CKS_RW_USER_FUNCTIONS;
  lindel().Return(Function::C_FindObjects, CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ([error_ code], -6);
  EXPECT_THAT([algorithm asked], IsEmpty());
}

TEST_P(RequestTest, AKeyThatWasNotFoundIsUsedWithoutAFurtherTest) {
  key_ = KeyObjectID({0x09});
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(lindel().At(request_.init).arguments[2].number, 0u);
}

TEST_P(RequestTest, EveryCardFailureHasTheSameCodeAndItsResultReachesOnlyTheLog) {
  for (CK_RV result :
       {CK_RV{CKR_KEY_TYPE_INCONSISTENT}, CK_RV{CKR_MECHANISM_INVALID},
        CK_RV{CKR_USER_NOT_LOGGED_IN}, CK_RV{CKR_DEVICE_REMOVED}, CK_RV{0x80000001}}) {
    Forget();
    lindel().Return(request_.init, result);
    EXPECT_EQ(Run(), nil);
    EXPECT_EQ(Text(error_), CardFailure());
    ASSERT_THAT(Errors(), SizeIs(2));
    EXPECT_THAT(Errors()[0], testing::StartsWith(std::string("error: PKCS11 function ") +
                                                 scripted::FunctionName(request_.init)));
    EXPECT_THAT(Errors()[1], testing::StartsWith(std::string("error: PKCS11 function ") +
                                                 request_.p11 + " failed: rv = "));
  }
}

TEST_P(RequestTest, AFailureOfTheSecondCallIsACardFailureToo) {
  lindel().Return(request_.result, CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_), CardFailure());
  EXPECT_EQ(Errors().back(), std::string("error: PKCS11 function ") + request_.p11 +
                                 " failed: rv = CKR_DEVICE_ERROR (0x30)");
}

TEST_P(RequestTest, AnUnknownAlgorithmIsLeftToTheCardToRefuse) {
  algorithm_ = AskedString(@"algid:sign:nobody");
  EXPECT_NE(Run(), nil) << "a card may accept it";
  EXPECT_EQ(lindel().At(request_.init).arguments[1].number, ~CK_ULONG{0});
  lindel().Return(request_.init, CKR_MECHANISM_INVALID);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ([error_ code], -3);
}

TEST_P(RequestTest, AResultThatBecomesNoDataIsAFailure) {
  {
    const ReplacedData none(nil);
    EXPECT_EQ(Run(), nil);
  }
  EXPECT_EQ(Text(error_),
            "TKErrorDomain -3 {NSLocalizedDescription: " + std::string(request_.no_data) + "}");
  EXPECT_THAT(Errors(), IsEmpty()) << "no line of its own";
  for (const std::string &line : Log()) EXPECT_EQ(line.find("erfolgreich"), std::string::npos);
}

TEST_P(RequestTest, AnEmptyResultIsASuccess) {
  Answer({});
  NSData *result = Run();
  ASSERT_NE(result, nil);
  EXPECT_EQ([result length], 0u);
  EXPECT_EQ(error_, untouched_);
}

TEST_P(RequestTest, AResultComesBackByteForByte) {
  for (size_t length : {1u, 2u, 64u, 70u, 255u, 256u, 1023u, 1024u}) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<CK_BYTE>(i * 7 + length);
    Answer(bytes);
    EXPECT_EQ(BytesOf(Run()), bytes);
    EXPECT_EQ(error_, untouched_);
  }
}

TEST_P(RequestTest, TheRoomOfAResultIsAlways1024Bytes) {
  Answer({1});
  Run();
  Run();
  for (size_t n : {0u, 1u}) {
    const scripted::Call call = lindel().At(request_.result, n);
    const CK_ULONG room = request_.result == Function::C_GetAttributeValue
                              ? call.arguments.back().attributes[0].length
                              : call.arguments.back().number;
    EXPECT_EQ(room, 1024u);
  }
}

TEST_P(RequestTest, EmptyDataIsLoggedAndStillGoesToTheCard) {
  data_ = [NSData data];
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(Log().at(1), "default: " + std::string(request_.length) + " 0");
  EXPECT_EQ(lindel().Count(request_.result), 1u);
  EXPECT_EQ(SentData().number, 0u);
}

TEST_P(RequestTest, DataOfAnyLengthGoesToTheCardUnchanged) {
  const Bytes data(3000, 0x5C);
  data_ = Data(data);
  Run();
  EXPECT_EQ(SentData().bytes, data);
  EXPECT_EQ(SentData().address, [data_ bytes]) << "not copied";
}

TEST_P(RequestTest, TheErrorIsWrittenWithoutATestOfThePointer) {
  GTEST_FLAG_SET(death_test_style, "fast");
  card().session_state = CKS_RW_PUBLIC_SESSION;
  EXPECT_DEATH(RunWith(nullptr), "");
}

TEST_P(RequestTest, ASuccessNeedsNoErrorPointer) { EXPECT_NE(RunWith(nullptr), nil); }

TEST_P(RequestTest, NeitherTheSessionArgumentNorAnotherSessionIsConsulted) {
  argument_ = (TKTokenSession *)[[[NSObject alloc] init] autorelease];
  EXPECT_NE(Run(), nil);
  argument_ = nil;
  EXPECT_NE(Run(), nil);
}

TEST_P(RequestTest, TheTokenIsAskedTwiceForEachOfThreeSteps) {
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  EXPECT_NE(Run(), nil);
  EXPECT_EQ([session tokenReads], 6u);
}

TEST_P(RequestTest, TheTokensSessionAndListAreReadForEachStep) {
  lindel().Observe([this](const scripted::Call &call) {
    if (call.function == Function::C_GetSessionInfo) [token_ setSession:70];
    if (call.function != Function::C_FindObjects) return;
    [token_ setSession:71];
    [token_ setP11:vumo().functions()];
  });
  Run();
  EXPECT_THAT(Calls(), ElementsAre("C_GetSessionInfo(7, out)",
                                   "C_FindObjectsInit(70, " + FindPrivate() + ")",
                                   "C_FindObjects(70, room[10], 10)"));
  ASSERT_FALSE(vumo().calls().empty());
  for (const scripted::Call &call : vumo().calls()) EXPECT_EQ(call.arguments[0].number, 71u);
  [token_ setP11:lindel().functions()];
}

TEST_P(RequestTest, WithTheLogOffTheSameCallsAreMadeAndNothingIsNamed) {
  const oslog::Disabled no_default(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_error(OS_LOG_TYPE_ERROR);
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  AskedAlgorithm *algorithm = AskedString(@"algid:sign:nobody");
  algorithm_ = algorithm;
  EXPECT_NE(Run(), nil);
  EXPECT_THAT(Calls(), SizeIs(5));
  EXPECT_EQ([session hexTexts], 0u);
  EXPECT_THAT([algorithm asked], SizeIs(7)) << "get_mechanism alone";
  lindel().Return(request_.init, CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_P(RequestTest, LengthsAreShownAsThirtyTwoBitsWithASign) {
  card().session_state = CKS_RW_PUBLIC_SESSION;  // the data itself is not to be read
  session_ = Session([HexlessSession class]);
  const std::pair<NSUInteger, const char *> kLengths[] = {{0x7FFFFFFF, "2147483647"},
                                                          {0x80000000, "-2147483648"},
                                                          {0xFFFFFFFF, "-1"},
                                                          {0x100000005, "5"}};
  for (const auto &[length, shown] : kLengths) {
    Forget();
    data_ = [ClaimingData dataOfLength:length];
    Run();
    EXPECT_EQ(Log().at(1), "default: " + std::string(request_.length) + " " + shown);
  }
}

TEST_P(RequestTest, NobodyLogsOutClosesTheSessionOrFinishesTheSearch) {
  EXPECT_NE(Run(), nil);
  lindel().ReturnOnce(request_.init, CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(), nil);
  EXPECT_NE(Run(), nil);
  for (Function function : {Function::C_Login, Function::C_Logout, Function::C_CloseSession,
                            Function::C_FindObjectsFinal, Function::C_DestroyObject,
                            Function::C_OpenSession, Function::C_Finalize}) {
    EXPECT_EQ(lindel().Count(function), 0u) << scripted::FunctionName(function);
  }
}

// What comes back through a buffer of the caller's.
class BufferTest : public RequestTest {};

INSTANTIATE_TEST_SUITE_P(All, BufferTest, testing::Values(kSign, kDecrypt),
                         [](const auto &info) { return info.param.name; });

TEST_P(BufferTest, AResultOfMoreThan1024BytesFails) {
  Answer(Bytes(1025, 1));
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_), CardFailure());
  EXPECT_EQ(Log().back(), std::string("error: PKCS11 function ") + request_.p11 +
                              " failed: rv = CKR_BUFFER_TOO_SMALL (0x150)");
}

TEST_P(BufferTest, AModuleThatClaimsMoreThanTheRoomGetsTheRoom) {
  for (CK_ULONG claim : {CK_ULONG{1025}, CK_ULONG{0x100000000}, ~CK_ULONG{0}}) {
    card().signature = card().plaintext = {Bytes(1024, 5), claim};
    EXPECT_EQ(BytesOf(Run()), Bytes(1024, 5));
    if (request_.init == Function::C_SignInit) {
      EXPECT_EQ(Log().end()[-4], "default: sigLen 1024");
    }
  }
}

// What is nobody's business.
class SecrecyTest : public RequestTest {};

INSTANTIATE_TEST_SUITE_P(All, SecrecyTest, testing::Values(kDecrypt, kExchange),
                         [](const auto &info) { return info.param.name; });

TEST_P(SecrecyTest, NeitherDataNorResultReachesTheLog) {
  data_ = Data(scripted::ToBytes("gegenstelle"));
  Answer(scripted::ToBytes("geheimnis"));
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  EXPECT_NE(Run(), nil);
  lindel().Return(request_.result, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Run(), nil);
  for (const char *secret :
       {"gegenstelle", "geheimnis", "676567656e7374656c6c65", "67656865696d6e6973"}) {
    EXPECT_FALSE(LogContains(secret)) << secret;
  }
  EXPECT_EQ([session hexTexts], 0u);
}

TEST_P(SecrecyTest, TheAlgorithmIsNotNamed) {
  AskedAlgorithm *algorithm = AskedString(@"algid:nobody");
  algorithm_ = algorithm;
  EXPECT_NE(Run(), nil);
  EXPECT_THAT([algorithm asked], SizeIs(7)) << "get_mechanism alone";
  EXPECT_FALSE(LogContains("kSecKeyAlgorithm"));
}

}  // namespace
}  // namespace token_testing
