// What becomes of an application's request on its way to a token and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::KeyItem;
using testing::PinOf;
using testing::Script;
using testing::SetError;

class RequestTest : public ::testing::Test {
 protected:
  RequestTest() { script.supported = {"algid:sign:RSA:raw", "algid:encrypt:RSA:raw"}; }

  // Has a client of a card use a key under the constraint.
  Result<Bytes> Perform(Operation operation, const char *algorithm, id constraint = @"PIN") {
    script.items = {Retained(KeyItem({2, 1}, @"key", constraint))};
    InsertedCard card = testing::ScriptedExtension().InsertCard();
    const Result<Client> client = card.OpenClient();
    if (!client) return client.error();
    return client->Perform(operation, *card.FindKey("0201"), algorithm, {'d', 'a', 't', 'a'}, pin);
  }
  Result<Bytes> Sign(id constraint = @"PIN") {
    return Perform(Operation::kSign, "RSASignatureRaw", constraint);
  }
  // Signs with a token that wants the PIN before its first operation, or before each.
  Result<Bytes> SignAfterThePin(bool at_each = false, id constraint = @"PIN") {
    script.operation = [at_each](int count, NSError **error) -> NSData * {
      if (count > 1 && !at_each) return [NSData dataWithBytes:"signed" length:6];
      SetError(error, TKErrorCodeAuthenticationNeeded, @"PIN, please");
      return nil;
    };
    return Sign(constraint);
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
    return PinOf("1234")();
  };
};

TEST_F(RequestTest, AnUnknownAlgorithmNeverReachesTheToken) {
  const Result<Bytes> result = Perform(Operation::kSign, "RSASignatureCooked");
  ASSERT_FALSE(result);
  EXPECT_THAT(result.error().description, HasSubstr("'RSASignatureCooked'"));
  EXPECT_THAT(calls(), ElementsAre());
}

TEST_F(RequestTest, AnUnsupportedAlgorithmIsNotPerformed) {
  script.supported = {};
  const Result<Bytes> result = Sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kParameterStatus);
  EXPECT_THAT(calls(),
              ElementsAre("supports algid:sign:RSA:raw", "supports algid:sign:RSA:raw-cc"));
}

TEST_F(RequestTest, ASessionWithoutADelegateSupportsNothing) {
  script.session = Script::Session::kMute;
  const Result<Bytes> result = Sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, kParameterStatus);
}

TEST_F(RequestTest, AConstraintThatIsFalseOrMissingForbidsTheOperation) {
  for (const Operation operation : {Operation::kSign, Operation::kReadData}) {
    const id constraint = operation == Operation::kSign ? [NSNumber numberWithBool:NO] : @"PIN";
    const Result<Bytes> result = Perform(operation, "RSASignatureRaw", constraint);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().domain, kOsStatusDomain);
    EXPECT_EQ(result.error().code, kAuthFailedStatus);
  }
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, AnOperationWithoutResultAndErrorIsACommunicationError) {
  script.operation = [](int, NSError **) -> NSData * { return nil; };
  const Result<Bytes> result = Sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().domain, "CryptoTokenKit");
  EXPECT_EQ(result.error().code, TKErrorCodeCommunicationError);
  EXPECT_FALSE(result.error().description.empty());
}

TEST_F(RequestTest, AnErrorOfTheTokenIsPassedOnUnchanged) {
  script.operation = [](int, NSError **error) -> NSData * {
    SetError(error, TKErrorCodeCorruptedData, @"schief");
    return nil;
  };
  const Result<Bytes> result = Sign();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, TKErrorCodeCorruptedData);
  EXPECT_EQ(result.error().description, "schief");
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WhatGoesWrongWithThePinEndsTheRequestAndNothingIsAskedTwice) {
  const std::string supports = "supports algid:sign:RSA:raw";
  const struct {
    Script::Begin begin;
    Script::Finish finish;
    id constraint;
    long code;
    std::vector<std::string> calls;  // after the question for support
  } rows[] = {{Script::Begin::kPin,
               Script::Finish::kNo,
               @"PIN",
               TKErrorCodeCommunicationError,
               {"sign data", "beginAuth 2 PIN", "finish 1234"}},
              {Script::Begin::kPin,
               Script::Finish::kNoWithError,
               @"PIN",
               TKErrorCodeAuthenticationFailed,
               {"sign data", "beginAuth 2 PIN", "finish 1234"}},
              {Script::Begin::kNil,
               {},
               @"PIN",
               TKErrorCodeCommunicationError,
               {"sign data", "beginAuth 2 PIN"}},
              {Script::Begin::kNilWithError,
               {},
               @"PIN",
               TKErrorCodeBadParameter,
               {"sign data", "beginAuth 2 PIN"}},
              // Without a constraint to hand back there is nothing to begin.
              {Script::Begin::kPin,
               {},
               [NSNumber numberWithBool : YES],
               TKErrorCodeAuthenticationNeeded,
               { "sign data" }},
              {Script::Begin::kPin,
               Script::Finish::kYes,
               @"PIN",
               TKErrorCodeAuthenticationNeeded,
               {"sign data", "beginAuth 2 PIN", "finish 1234", "sign data"}}};
  for (const auto &row : rows) {
    script.Forget();
    script.begin = row.begin;
    script.finish = row.finish;
    const Result<Bytes> result = SignAfterThePin(true, row.constraint);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().domain, "CryptoTokenKit");
    EXPECT_EQ(result.error().code, row.code);
    std::vector<std::string> expected = {supports};
    expected.insert(expected.end(), row.calls.begin(), row.calls.end());
    EXPECT_EQ(calls(), expected);
  }
  EXPECT_EQ(pins_asked, 3);
}

TEST_F(RequestTest, TheSameNumberInAnotherDomainAsksForNoPin) {
  script.operation = [](int, NSError **error) -> NSData * {
    *error = [NSError errorWithDomain:@"elsewhere"
                                 code:TKErrorCodeAuthenticationNeeded
                             userInfo:nil];
    return nil;
  };
  EXPECT_EQ(Sign().error().domain, "elsewhere");
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WithoutAPinTheRequestEndsAsThePinSourceSays) {
  pin = [] { return Error{"CryptoTokenKit", TKErrorCodeCanceledByUser, "not now"}; };
  EXPECT_EQ(SignAfterThePin().error().code, TKErrorCodeCanceledByUser);
  pin = PinOf("\xFF\xFE");
  EXPECT_THAT(SignAfterThePin(true).error().description, HasSubstr("UTF-8"));
}

TEST_F(RequestTest, AfterThePinTheOperationIsTriedOnceMoreAndThePinForgotten) {
  const Result<Bytes> result = SignAfterThePin();
  ASSERT_TRUE(result) << result.error().description;
  EXPECT_EQ(*result, (Bytes{'s', 'i', 'g', 'n', 'e', 'd'}));
  EXPECT_THAT(calls(), ElementsAre("supports algid:sign:RSA:raw", "sign data", "beginAuth 2 PIN",
                                   "finish 1234", "sign data"));
  EXPECT_EQ(pins_asked, 1);
  EXPECT_THAT(script.calls(), ::testing::Not(::testing::Contains("a PIN outlived its operation")));
}

TEST_F(RequestTest, AnEmptyPinIsAPin) {
  pin = PinOf("");
  EXPECT_TRUE(SignAfterThePin());
  EXPECT_THAT(calls(), ::testing::Contains("finish "));
}

TEST_F(RequestTest, APlainOperationNeedsNoPin) {
  script.begin = Script::Begin::kPlain;
  EXPECT_TRUE(SignAfterThePin());
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WithATemplateThePinStaysWithTheSystem) {
  script.begin = Script::Begin::kTemplate;
  EXPECT_TRUE(SignAfterThePin());
  EXPECT_THAT(calls(), ::testing::Contains("finish without PIN"));
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, AConstraintThatIsTrueLetsTheOperationThrough) {
  EXPECT_TRUE(Sign([NSNumber numberWithBool:YES]));
}

TEST_F(RequestTest, DecryptionAndExchangeReachTheirOwnMethods) {
  EXPECT_TRUE(Perform(Operation::kDecrypt, "RSAEncryptionRaw"));
  EXPECT_THAT(calls(), ElementsAre("supports algid:encrypt:RSA:raw", "decrypt data"));
}

TEST_F(RequestTest, AnExchangeIsForTheBareSecret) {
  script.supported = {"algid:keyexchange:ECDH"};
  EXPECT_TRUE(Perform(Operation::kKeyExchange, "ECDHKeyExchangeStandard"));
  EXPECT_THAT(calls(),
              ElementsAre("supports algid:keyexchange:ECDH", "requested size 0", "exchange data"));
}

}  // namespace
}  // namespace host
