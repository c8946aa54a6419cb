// What becomes of an application's request on its way to a token and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::HasSubstr;
using testing::KeyItem;
using testing::PinOf;
using testing::Script;

NSError *ErrorOf(NSString *domain, NSInteger code, NSString *text) {
  return [NSError errorWithDomain:domain code:code userInfo:@{NSLocalizedDescriptionKey : text}];
}

class RequestTest : public ::testing::Test {
 protected:
  RequestTest() { script.supported = {"algid:sign:RSA:raw", "algid:encrypt:RSA:raw"}; }

  // Has a client of a card use a key under the constraint; forgets what was called before.
  Result<Bytes> Perform(Operation operation, const char *algorithm, id constraint = @"PIN") {
    script.Forget();
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
      *error = ErrorOf(TKErrorDomain, TKErrorCodeAuthenticationNeeded, @"PIN, please");
      return nil;
    };
    return Sign(constraint);
  }

  // The calls between the session's creation and its end, each before a semicolon.
  std::string calls() const {
    const std::vector<std::string> all = script.calls();
    std::string text;
    for (size_t i = 2; i + 3 < all.size(); ++i) text += all[i] + ";";
    return text;
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
  EXPECT_EQ(calls(), "");
}

TEST_F(RequestTest, AnUnsupportedAlgorithmIsNotPerformed) {
  script.supported = {};
  EXPECT_EQ(Sign().error().code, kParameterStatus);
  EXPECT_EQ(calls(), "supports algid:sign:RSA:raw;supports algid:sign:RSA:raw-cc;");
  script.session = Script::Session::kMute;  // without a delegate
  EXPECT_EQ(Sign().error().code, kParameterStatus);
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

TEST_F(RequestTest, AnErrorIsPassedOnUnchangedAndAMissingOneIsACommunicationError) {
  const struct {
    NSError *given;
    const char *domain;
    long code;
    const char *description;
  } rows[] = {{nil, "CryptoTokenKit", TKErrorCodeCommunicationError,
               "the token failed to sign and gave no error"},
              {ErrorOf(TKErrorDomain, TKErrorCodeCorruptedData, @"schief"), "CryptoTokenKit",
               TKErrorCodeCorruptedData, "schief"},
              // The number that asks for a PIN, in another domain.
              {ErrorOf(@"elsewhere", TKErrorCodeAuthenticationNeeded, @"else"), "elsewhere",
               TKErrorCodeAuthenticationNeeded, "else"}};
  for (const auto &row : rows) {
    script.operation = [&row](int, NSError **error) -> NSData * {
      *error = row.given;
      return nil;
    };
    const Result<Bytes> result = Sign();
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().domain, row.domain);
    EXPECT_EQ(result.error().code, row.code);
    EXPECT_EQ(result.error().description, row.description);
  }
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, WhatGoesWrongWithThePinEndsTheRequestAndNothingIsAskedTwice) {
  using Begin = Script::Begin;
  using Finish = Script::Finish;
  const struct {
    const char *name;
    Begin begin;
    Finish finish;
    long code;
    const char *calls;  // after the first attempt
  } rows[] = {
      {"refused, no error", Begin::kPin, Finish::kNo, TKErrorCodeCommunicationError,
       "beginAuth 2 PIN;finish 1234;"},
      {"refused", Begin::kPin, Finish::kNoWithError, TKErrorCodeAuthenticationFailed,
       "beginAuth 2 PIN;finish 1234;"},
      {"not begun, no error", Begin::kNil, Finish::kYes, TKErrorCodeCommunicationError,
       "beginAuth 2 PIN;"},
      {"not begun", Begin::kNilWithError, Finish::kYes, TKErrorCodeBadParameter,
       "beginAuth 2 PIN;"},
      {"wanted again", Begin::kPin, Finish::kYes, TKErrorCodeAuthenticationNeeded,
       "beginAuth 2 PIN;finish 1234;sign data;"},
  };
  const std::string attempt = "supports algid:sign:RSA:raw;sign data;";
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    script.begin = row.begin;
    script.finish = row.finish;
    const Result<Bytes> result = SignAfterThePin(true);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().domain, "CryptoTokenKit");
    EXPECT_EQ(result.error().code, row.code);
    EXPECT_EQ(calls(), attempt + row.calls);
  }
  EXPECT_EQ(pins_asked, 3);
  // Without a constraint to hand back there is nothing to begin.
  EXPECT_EQ(SignAfterThePin(true, [NSNumber numberWithBool:YES]).error().code,
            TKErrorCodeAuthenticationNeeded);
  EXPECT_EQ(calls(), attempt);
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
  EXPECT_EQ(calls(),
            "supports algid:sign:RSA:raw;sign data;beginAuth 2 PIN;finish 1234;sign data;");
  EXPECT_EQ(pins_asked, 1);
  EXPECT_THAT(script.calls(), ::testing::Not(::testing::Contains("a PIN outlived its operation")));
}

TEST_F(RequestTest, AnEmptyPinIsAPin) {
  pin = PinOf("");
  EXPECT_TRUE(SignAfterThePin());
  EXPECT_THAT(calls(), HasSubstr("finish ;"));
}

// A plain operation has none, and with a template the PIN stays with the system.
TEST_F(RequestTest, ThePinIsNotAskedForWhereTheTokenTakesNone) {
  script.begin = Script::Begin::kPlain;
  EXPECT_TRUE(SignAfterThePin());
  script.begin = Script::Begin::kTemplate;
  EXPECT_TRUE(SignAfterThePin());
  EXPECT_THAT(calls(), HasSubstr("finish without PIN;"));
  EXPECT_EQ(pins_asked, 0);
}

TEST_F(RequestTest, AConstraintThatIsTrueLetsTheOperationThrough) {
  EXPECT_TRUE(Sign([NSNumber numberWithBool:YES]));
}

TEST_F(RequestTest, EachOperationReachesItsOwnMethod) {
  EXPECT_TRUE(Perform(Operation::kDecrypt, "RSAEncryptionRaw"));
  EXPECT_EQ(calls(), "supports algid:encrypt:RSA:raw;decrypt data;");
  script.supported = {"algid:keyexchange:ECDH"};
  EXPECT_TRUE(Perform(Operation::kKeyExchange, "ECDHKeyExchangeStandard"));
  // An exchange is for the bare secret.
  EXPECT_EQ(calls(), "supports algid:keyexchange:ECDH;requested size 0;exchange data;");
}

}  // namespace
}  // namespace host
