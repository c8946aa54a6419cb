// What becomes of an application's request on its way to a token and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/host/foundation.h"
#include "platform/linux/host/hosted_extension.h"
#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::key_item;
using testing::Script;
using testing::set_error;

const Bytes kData = {'d', 'a', 't', 'a'};

NSData *signature() { return [NSData dataWithBytes:"signed" length:6]; }

NSData *needs_authentication(NSError **error) {
  set_error(error, TKErrorCodeAuthenticationNeeded, @"PIN, please");
  return nil;
}

class RequestTest : public ::testing::Test {
 protected:
  RequestTest() { script.supported = {"algid:sign:RSA:raw", "algid:encrypt:RSA:raw"}; }

  // Has a client of a card use a key under the constraint.
  Result<Bytes> perform(Operation operation, const char *algorithm, id constraint = @"PIN",
                        const Request &request = {.data = kData}) {
    script.items = {retained(key_item({2, 1}, @"key", constraint))};
    InsertedCard card =
        HostedExtension(retained([[[ScriptedDriver alloc] init] autorelease])).insert_card();
    Result<Client> client = card.open_client();
    if (!client) return client.error();
    return client->perform(operation, *card.find_key("0201"), algorithm, request, pin);
  }
  Result<Bytes> sign(id constraint = @"PIN") {
    return perform(Operation::kSign, "RSASignatureRaw", constraint);
  }

  // The calls between the session's creation and its end.
  std::vector<std::string> calls() const {
    std::vector<std::string> all = script.calls();
    if (all.size() < 5) return {};
    return {all.begin() + 2, all.end() - 3};
  }

  Script script;
  int pins_asked = 0;
  PinSource pin = [this]() -> Result<Secret> {
    ++pins_asked;
    return Secret({'1', '2', '3', '4'});
  };
};

TEST_F(RequestTest, AnUnknownAlgorithmNeverReachesTheToken) {
  const Result<Bytes> result = perform(Operation::kSign, "RSASignatureCooked");
  ASSERT_FALSE(result);
  EXPECT_THAT(result.error().description, HasSubstr("'RSASignatureCooked'"));
  EXPECT_THAT(calls(), ElementsAre());
}

TEST_F(RequestTest, AnUnsupportedAlgorithmIsNotPerformed) {
  script.supported = {};
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kParameterStatus);
  EXPECT_THAT(calls(),
              ElementsAre("supports algid:sign:RSA:raw", "supports algid:sign:RSA:raw-cc"));
}

TEST_F(RequestTest, ASessionWithoutADelegateSupportsNothing) {
  script.session = Script::Session::kMute;
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kParameterStatus);
}

TEST_F(RequestTest, AConstraintThatIsFalseOrMissingForbidsTheOperation) {
  for (const Operation operation : {Operation::kSign, Operation::kReadData}) {
    const id constraint = operation == Operation::kSign ? [NSNumber numberWithBool:NO] : @"PIN";
    const Result<Bytes> result = perform(operation, "RSASignatureRaw", constraint);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().domain, kOsStatusDomain);
    EXPECT_EQ(result.error().code, kAuthFailedStatus);
  }
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, AnOperationWithoutResultAndErrorIsACommunicationError) {
  script.operation = [](int, NSError **) -> NSData * { return nil; };
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().domain, "CryptoTokenKit");
  EXPECT_EQ(result.error().code, TKErrorCodeCommunicationError);
  EXPECT_FALSE(result.error().description.empty());
}

TEST_F(RequestTest, AnErrorOfTheTokenIsPassedOnUnchanged) {
  script.operation = [](int, NSError **error) -> NSData * {
    set_error(error, TKErrorCodeCorruptedData, @"schief");
    return nil;
  };
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, TKErrorCodeCorruptedData);
  EXPECT_EQ(result.error().description, "schief");
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, ARefusedPinWithoutErrorIsACommunicationErrorAndNothingIsTriedAgain) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  script.finish = Script::Finish::kNo;
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, TKErrorCodeCommunicationError);
  EXPECT_THAT(result.error().description, HasSubstr("PIN"));
  EXPECT_THAT(calls(), ElementsAre("supports algid:sign:RSA:raw", "sign data", "beginAuth 2 PIN",
                                   "finish 1234"));
}

TEST_F(RequestTest, ARefusedPinsErrorIsPassedOnUnchanged) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  script.finish = Script::Finish::kNoWithError;
  EXPECT_EQ(sign().error().code, TKErrorCodeAuthenticationFailed);
}

TEST_F(RequestTest, NoAuthenticationToBeginEndsTheRequest) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  script.begin = Script::Begin::kNil;
  EXPECT_EQ(sign().error().code, TKErrorCodeCommunicationError);
  script.begin = Script::Begin::kNilWithError;
  EXPECT_EQ(sign().error().code, TKErrorCodeBadParameter);
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WithoutAConstraintToHandBackAuthenticationNeededIsFinal) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  const Result<Bytes> result = sign([NSNumber numberWithBool:YES]);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, TKErrorCodeAuthenticationNeeded);
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, AuthenticationNeededTwiceIsFinalAndThePinIsAskedOnce) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  const Result<Bytes> result = sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, TKErrorCodeAuthenticationNeeded);
  EXPECT_THAT(calls(), ElementsAre("supports algid:sign:RSA:raw", "sign data", "beginAuth 2 PIN",
                                   "finish 1234", "sign data"));
  EXPECT_EQ(pins_asked, 1);
}

TEST_F(RequestTest, TheSameNumberInAnotherDomainAsksForNoPin) {
  script.operation = [](int, NSError **error) -> NSData * {
    *error = [NSError errorWithDomain:@"elsewhere"
                                 code:TKErrorCodeAuthenticationNeeded
                             userInfo:nil];
    return nil;
  };
  EXPECT_EQ(sign().error().domain, "elsewhere");
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WithoutAPinTheRequestEndsAsThePinSourceSays) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  pin = [] { return Error{"CryptoTokenKit", TKErrorCodeCanceledByUser, "not now"}; };
  EXPECT_EQ(sign().error().code, TKErrorCodeCanceledByUser);
  pin = [] { return Secret({'\xFF', '\xFE'}); };
  EXPECT_THAT(sign().error().description, HasSubstr("UTF-8"));
}

TEST_F(RequestTest, AfterThePinTheOperationIsTriedOnceMore) {
  script.operation = [](int count, NSError **error) {
    return count == 1 ? needs_authentication(error) : signature();
  };
  const Result<Bytes> result = sign();
  ASSERT_TRUE(result) << result.error().description;
  EXPECT_EQ(*result, to_bytes(signature()));
  EXPECT_THAT(calls(), ElementsAre("supports algid:sign:RSA:raw", "sign data", "beginAuth 2 PIN",
                                   "finish 1234", "sign data"));
  EXPECT_EQ(pins_asked, 1);
}

TEST_F(RequestTest, AnEmptyPinIsAPin) {
  script.operation = [](int count, NSError **error) {
    return count == 1 ? needs_authentication(error) : signature();
  };
  pin = [] { return Secret(); };
  EXPECT_TRUE(sign());
  EXPECT_THAT(calls(), ::testing::Contains("finish "));
}

TEST_F(RequestTest, APlainOperationNeedsNoPin) {
  script.operation = [](int count, NSError **error) {
    return count == 1 ? needs_authentication(error) : signature();
  };
  script.begin = Script::Begin::kPlain;
  EXPECT_TRUE(sign());
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WithATemplateThePinStaysWithTheSystem) {
  script.operation = [](int count, NSError **error) {
    return count == 1 ? needs_authentication(error) : signature();
  };
  script.begin = Script::Begin::kTemplate;
  EXPECT_TRUE(sign());
  EXPECT_THAT(calls(), ::testing::Contains("finish without PIN"));
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, NoPinOutlivesItsAuthentication) {
  script.operation = [](int, NSError **error) { return needs_authentication(error); };
  EXPECT_FALSE(sign());
  EXPECT_THAT(script.calls(), ::testing::Not(::testing::Contains("a PIN outlived its operation")));
}

TEST_F(RequestTest, AConstraintThatIsTrueLetsTheOperationThrough) {
  EXPECT_TRUE(sign([NSNumber numberWithBool:YES]));
}

TEST_F(RequestTest, DecryptionAndExchangeReachTheirOwnMethods) {
  const Result<Bytes> plaintext = perform(Operation::kDecrypt, "RSAEncryptionRaw");
  ASSERT_TRUE(plaintext) << plaintext.error().description;
  EXPECT_THAT(calls(), ElementsAre("supports algid:encrypt:RSA:raw", "decrypt data"));
}

TEST_F(RequestTest, AnExchangeCarriesItsParameters) {
  script.supported = {"algid:keyexchange:ECDH:KDFX963:SHA1"};
  ASSERT_TRUE(perform(Operation::kKeyExchange, "ECDHKeyExchangeStandardX963SHA1", @"PIN",
                      {.data = kData, .requested_size = 20}));
  EXPECT_THAT(calls(), ElementsAre("supports algid:keyexchange:ECDH:KDFX963:SHA1",
                                   "requested size 20", "exchange data"));
}

}  // namespace
}  // namespace host
