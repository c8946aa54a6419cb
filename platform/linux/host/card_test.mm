// Cards that come and go, and the items on them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#include "platform/linux/host/hosted_extension.h"
#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::key_item;
using ::testing::Not;
using testing::Script;

const PinSource kNoPin;

class CardTest : public ::testing::Test {
 protected:
  CardTest() { script.supported = {"algid:sign:RSA:raw"}; }

  HostedExtension extension() {
    return HostedExtension(retained([[[ScriptedDriver alloc] init] autorelease]));
  }
  void add_key(const Bytes &objectID, NSString *label, id constraint = @"PIN") {
    script.items.push_back(retained(key_item(objectID, label, constraint)));
  }

  Script script;
};

TEST_F(CardTest, ADriverThatMakesNoTokenIsTolerated) {
  script.token = Script::Token::kNil;
  InsertedCard card = extension().insert_card();
  EXPECT_EQ(card.set_up(), SetUp::kNoToken);
  ASSERT_TRUE(card.error());
  EXPECT_EQ(card.error()->code, TKErrorCodeCommunicationError);
  EXPECT_TRUE(card.items().empty());
  EXPECT_EQ(card.instance_id(), "");
  EXPECT_EQ(card.open_client().error().code, TKErrorCodeTokenNotFound);
  card.remove();
  EXPECT_THAT(script.calls(), ElementsAre("createToken"));
}

TEST_F(CardTest, ADriversErrorIsKept) {
  script.token = Script::Token::kNilWithError;
  const InsertedCard card = extension().insert_card();
  ASSERT_TRUE(card.error());
  EXPECT_EQ(card.error()->description, "the card is broken");
}

TEST_F(CardTest, ADriverWithoutADelegateMakesNoToken) {
  const HostedExtension plain(retained([[[TKSmartCardTokenDriver alloc] init] autorelease]));
  EXPECT_EQ(plain.insert_card().set_up(), SetUp::kNoToken);
}

TEST_F(CardTest, ATokenThatWasNeverInitialisedIsToleratedAndReleased) {
  script.token = Script::Token::kUninitialised;
  InsertedCard card = extension().insert_card();
  EXPECT_EQ(card.set_up(), SetUp::kUninitialised);
  EXPECT_TRUE(card.error());
  EXPECT_TRUE(card.items().empty());
  EXPECT_FALSE(card.open_client());
  EXPECT_THAT(script.calls(), Not(Contains("dealloc token")));
  card.remove();
  EXPECT_THAT(script.calls(), Contains("dealloc token"));
}

TEST_F(CardTest, ATokenThatGivesNoSessionIsAnError) {
  InsertedCard card = extension().insert_card();
  script.session = Script::Session::kNil;
  EXPECT_EQ(card.open_client().error().code, TKErrorCodeCommunicationError);
  script.session = Script::Session::kNilWithError;
  EXPECT_EQ(card.open_client().error().code, TKErrorCodeNotImplemented);
  script.session = Script::Session::kGood;
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ(card.open_client().error().code, TKErrorCodeCommunicationError);
  EXPECT_TRUE(card.open_client());
}

TEST_F(CardTest, RemovingACardReleasesItsTokenOnce) {
  InsertedCard card = extension().insert_card();
  EXPECT_EQ(card.set_up(), SetUp::kReady);
  EXPECT_FALSE(card.error());
  EXPECT_NE(card.token(), nullptr);
  card.remove();
  card.remove();
  EXPECT_EQ(card.token(), nullptr);
  EXPECT_FALSE(card.open_client());
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "terminateToken", "dealloc token"));
}

TEST_F(CardTest, ACardThatGoesOutOfScopeIsRemoved) {
  {
    const InsertedCard card = extension().insert_card();
  }
  EXPECT_THAT(script.calls(), Contains("terminateToken"));
}

TEST_F(CardTest, SessionsOutliveTheRemoval) {
  add_key({2, 1}, @"key", [NSNumber numberWithBool:YES]);
  InsertedCard card = extension().insert_card();
  const Result<Item> key = card.find_key("0201");
  {
    Result<Client> client = card.open_client();
    ASSERT_TRUE(client && key);
    card.remove();
    EXPECT_TRUE(client->sign(*key, "RSASignatureRaw", {'x'}, kNoPin));
    EXPECT_THAT(script.calls(), Not(Contains("dealloc token")));
  }
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "createSession", "terminateToken",
                                          "supports algid:sign:RSA:raw", "sign x",
                                          "terminateSession", "dealloc token"));
}

TEST_F(CardTest, EveryClientHasASessionOfItsOwn) {
  InsertedCard card = extension().insert_card();
  Result<Client> one = card.open_client();
  Result<Client> other = card.open_client();
  ASSERT_TRUE(one && other);
  EXPECT_NE(one->session(), other->session());
}

TEST_F(CardTest, AKeyThatIsNotThereIsNamed) {
  add_key({2, 1}, @"key");
  const InsertedCard card = extension().insert_card();
  for (const char *name : {"0202", "", "02", "020", "0x0201", "clef"}) {
    const Result<Item> key = card.find_key(name);
    ASSERT_FALSE(key) << name;
    EXPECT_THAT(key.error().description, HasSubstr("'" + std::string(name) + "'"));
  }
}

TEST_F(CardTest, ALabelOfSeveralKeysIsAmbiguous) {
  add_key({2, 0xAA}, @"key");
  add_key({2, 0xBB}, @"key");
  const InsertedCard card = extension().insert_card();
  const Result<Item> key = card.find_key("key");
  ASSERT_FALSE(key);
  EXPECT_THAT(key.error().description, HasSubstr("02AA 02BB"));
}

TEST_F(CardTest, KeysAreFoundByObjectIdOrLabel) {
  add_key({2, 0xAA}, @"Schlüssel (Käthe)");
  add_key({2, 0xBB}, @"02AA");
  const InsertedCard card = extension().insert_card();
  EXPECT_EQ(card.find_key("02aa")->object_id, "02AA");  // before the label that reads like it
  EXPECT_EQ(card.find_key("02BB")->object_id, "02BB");
  EXPECT_EQ(card.find_key("Schlüssel (Käthe)")->object_id, "02AA");
}

TEST_F(CardTest, ItemsTellWhatTheirObjectsSay) {
  add_key({2, 1}, @"key");
  TKTokenKeychainKey *second = key_item({2, 2}, nil, [NSNumber numberWithBool:NO]);
  [second setKeyType:@"73"];
  [second setCanSign:NO];
  script.items.push_back(retained(second));
  script.items.push_back(
      retained([[[TKTokenKeychainItem alloc] initWithObjectID:@"other"] autorelease]));
  const std::vector<Item> items = extension().insert_card().items();
  ASSERT_EQ(items.size(), 3U);
  EXPECT_EQ(items[0].kind, Item::Kind::kKey);
  EXPECT_EQ(items[0].label, "key");
  EXPECT_EQ(items[0].key_type, "RSA");
  EXPECT_EQ(items[0].facts.bits, 2048U);
  EXPECT_TRUE(items[0].can_sign && items[0].can_decrypt && items[0].can_exchange);
  EXPECT_EQ(items[0].constraints.at(Operation::kSign).kind, Constraint::Kind::kAuthentication);
  EXPECT_EQ(items[0].constraints.at(Operation::kSign).text, "PIN");
  EXPECT_FALSE(items[0].constraints.contains(Operation::kReadData));
  EXPECT_EQ(items[1].label, "");
  EXPECT_EQ(items[1].key_type, "EC");
  EXPECT_FALSE(items[1].can_sign);
  EXPECT_EQ(items[1].constraints.at(Operation::kDecrypt).kind, Constraint::Kind::kNever);
  EXPECT_EQ(items[2].kind, Item::Kind::kOther);
  EXPECT_EQ(items[2].object_id, "other");
}

TEST_F(CardTest, DuplicateObjectIdsAreToldAndTheirItemsKept) {
  add_key({2, 1}, @"one");
  add_key({2, 1}, @"two");
  add_key({2, 2}, @"three");
  const std::vector<Item> items = extension().insert_card().items();
  EXPECT_EQ(items.size(), 3U);
  EXPECT_THAT(duplicate_object_ids(items), ElementsAre("0201"));
}

}  // namespace
}  // namespace host
