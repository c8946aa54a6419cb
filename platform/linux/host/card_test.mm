// Cards that come and go, and the items on them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/testing/scripted_extension.h"

namespace host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::KeyItem;
using ::testing::Not;
using testing::Script;

class CardTest : public ::testing::Test {
 protected:
  CardTest() { script.supported = {"algid:sign:RSA:raw"}; }

  static InsertedCard Insert() { return testing::ScriptedExtension().InsertCard(); }
  void AddKey(const Bytes &objectID, NSString *label, id constraint = @"PIN") {
    script.items.push_back(Retained(KeyItem(objectID, label, constraint)));
  }

  Script script;
};

TEST_F(CardTest, ADriverThatMakesNoTokenIsToleratedAndItsErrorKept) {
  script.token = Script::Token::kNilWithError;
  InsertedCard failed = Insert();
  EXPECT_TRUE(failed.driver_gave_error());
  EXPECT_EQ(failed.error()->description, "the card is broken");
  script.token = Script::Token::kNil;
  InsertedCard card = Insert();
  EXPECT_FALSE(card.driver_gave_error());
  EXPECT_EQ(card.error()->code, TKErrorCodeCommunicationError);
  EXPECT_TRUE(card.items().empty());
  EXPECT_EQ(card.instance_id(), "");
  EXPECT_EQ(card.OpenClient().error().code, TKErrorCodeTokenNotFound);
  card.Remove();
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "createToken"));
  const HostedExtension plain(Retained([[[TKSmartCardTokenDriver alloc] init] autorelease]));
  EXPECT_TRUE(plain.InsertCard().error());  // no delegate to make one
}

TEST_F(CardTest, ATokenThatWasNeverInitialisedIsToleratedAndReleased) {
  script.token = Script::Token::kUninitialised;
  InsertedCard card = Insert();
  EXPECT_TRUE(card.error());
  EXPECT_TRUE(card.items().empty());
  EXPECT_FALSE(card.OpenClient());
  EXPECT_THAT(script.calls(), Not(Contains("dealloc token")));
  card.Remove();
  EXPECT_THAT(script.calls(), Contains("dealloc token"));
}

TEST_F(CardTest, ATokenThatGivesNoSessionIsAnError) {
  InsertedCard card = Insert();
  script.session = Script::Session::kNil;
  EXPECT_EQ(card.OpenClient().error().code, TKErrorCodeCommunicationError);
  script.session = Script::Session::kNilWithError;
  EXPECT_EQ(card.OpenClient().error().code, TKErrorCodeNotImplemented);
  script.session = Script::Session::kGood;
  [TKTokenSession failNextInitialisation];
  EXPECT_EQ(card.OpenClient().error().code, TKErrorCodeCommunicationError);
  EXPECT_TRUE(card.OpenClient());
}

TEST_F(CardTest, ACardIsRemovedOnceAtTheLatestWhenItGoesOutOfScope) {
  {
    InsertedCard card = Insert();
    EXPECT_FALSE(card.error());
    card.Remove();
    EXPECT_FALSE(card.OpenClient());
    EXPECT_THAT(script.calls(), ElementsAre("createToken", "terminateToken", "dealloc token"));
    const InsertedCard other = Insert();
  }
  EXPECT_EQ(script.calls().size(), 6U);
}

TEST_F(CardTest, SessionsOutliveTheRemoval) {
  AddKey({2, 1}, @"key", [NSNumber numberWithBool:YES]);
  InsertedCard card = Insert();
  const Result<Item> key = card.FindKey("0201");
  {
    Result<Client> client = card.OpenClient();
    ASSERT_TRUE(client && key);
    card.Remove();
    EXPECT_TRUE(client->Perform(Operation::kSign, *key, "RSASignatureRaw", {'x'}, {}));
    EXPECT_THAT(script.calls(), Not(Contains("dealloc token")));
  }
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "createSession", "terminateToken",
                                          "supports algid:sign:RSA:raw", "sign x",
                                          "terminateSession", "dealloc token"));
}

TEST_F(CardTest, EveryClientHasASessionOfItsOwn) {
  InsertedCard card = Insert();
  const Result<Client> one = card.OpenClient();
  const Result<Client> other = card.OpenClient();
  ASSERT_TRUE(one && other);
  EXPECT_THAT(script.calls(), ElementsAre("createToken", "createSession", "createSession"));
}

TEST_F(CardTest, AKeyThatIsNotThereIsNamed) {
  AddKey({2, 1}, @"key");
  const InsertedCard card = Insert();
  for (const char *name : {"0202", "", "02", "020", "0x0201", "clef"}) {
    const Result<Item> key = card.FindKey(name);
    ASSERT_FALSE(key) << name;
    EXPECT_THAT(key.error().description, HasSubstr("'" + std::string(name) + "'"));
  }
}

TEST_F(CardTest, KeysAreFoundByObjectIdOrElseByALabelOfTheirOwn) {
  AddKey({2, 0xAA}, @"Schlüssel (Käthe)");
  AddKey({2, 0xBB}, @"02AA");
  AddKey({2, 0xCC}, @"key");
  AddKey({2, 0xDD}, @"key");
  const InsertedCard card = Insert();
  EXPECT_EQ(card.FindKey("02aa")->object_id, "02AA");  // before the label that reads like it
  EXPECT_EQ(card.FindKey("02BB")->object_id, "02BB");
  EXPECT_EQ(card.FindKey("Schlüssel (Käthe)")->object_id, "02AA");
  const Result<Item> key = card.FindKey("key");
  ASSERT_FALSE(key);
  EXPECT_THAT(key.error().description, HasSubstr("02CC 02DD"));
}

TEST_F(CardTest, ItemsTellWhatTheirObjectsSay) {
  AddKey({2, 1}, @"key");
  TKTokenKeychainKey *second = KeyItem({2, 2}, nil, [NSNumber numberWithBool:NO]);
  [second setKeyType:@"73"];
  [second setCanSign:NO];
  script.items.push_back(Retained(second));
  script.items.push_back(
      Retained([[[TKTokenKeychainItem alloc] initWithObjectID:@"other"] autorelease]));
  const std::vector<Item> items = Insert().items();
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
  AddKey({2, 1}, @"one");
  AddKey({2, 1}, @"two");
  AddKey({2, 2}, @"three");
  const std::vector<Item> items = Insert().items();
  EXPECT_EQ(items.size(), 3U);
  EXPECT_THAT(DuplicateObjectIds(items), ElementsAre("0201"));
}

}  // namespace
}  // namespace host
