#include "adapter/search_memory.h"

#include <gtest/gtest.h>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

constexpr auto kOneTick = SearchMemory::Clock::duration(1);

class SearchMemoryTest : public testing::Test {
 protected:
  SearchMemoryTest() {
    key_ = fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {1, 2}}});
    memory_.Learn(name_, {key_});
  }
  Handles Recall(const ObjectName& name) {
    const Handles* const found = memory_.Recall(1, name);
    return found != nullptr ? *found : Handles();
  }
  void LetTheLookGrowOld() { now_ += SearchMemory::kTokenTrust; }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  SearchMemory::Clock::time_point now_{std::chrono::hours(1)};
  SearchMemory memory_{functions_, 7, [this] { return now_; }};
  const ObjectName name_ = {CKO_PRIVATE_KEY, {1, 2}};
  CK_OBJECT_HANDLE key_ = 0;
};

TEST_F(SearchMemoryTest, UnknownNamesAreNotKnown) {
  EXPECT_EQ(memory_.Recall(1, {CKO_PRIVATE_KEY, {1}}), nullptr);
  EXPECT_EQ(memory_.Recall(1, {CKO_PUBLIC_KEY, {1, 2}}), nullptr);
  EXPECT_EQ(memory_.NameOf(key_ + 1), nullptr);
}

TEST_F(SearchMemoryTest, FreshLookIsTrustedWithoutACall) {
  const std::size_t before = fake_.Calls("C_GetAttributeValue") + fake_.Calls("C_GetTokenInfo");
  now_ += SearchMemory::kObjectTrust - kOneTick;
  EXPECT_EQ(Recall(name_), Handles{key_});
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue") + fake_.Calls("C_GetTokenInfo"), before);
}

TEST_F(SearchMemoryTest, OldLookIsRepeatedOnce) {
  LetTheLookGrowOld();
  EXPECT_EQ(Recall(name_), Handles{key_});
  EXPECT_EQ(Recall(name_), Handles{key_});
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), 1u);
}

TEST_F(SearchMemoryTest, ObjectsAreLookedAtMoreOftenThanTheToken) {
  const std::size_t before = fake_.Calls("C_GetTokenInfo");
  now_ += SearchMemory::kObjectTrust;
  EXPECT_EQ(Recall(name_), Handles{key_});
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), 1u);
  EXPECT_EQ(fake_.Calls("C_GetTokenInfo"), before);
}

TEST_F(SearchMemoryTest, ObjectThatIsGoneIsForgotten) {
  fake_.objects.erase(key_);
  LetTheLookGrowOld();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  EXPECT_TRUE(memory_.is_empty());
  EXPECT_EQ(memory_.NameOf(key_), nullptr);
}

TEST_F(SearchMemoryTest, ObjectWithAnotherIdIsForgotten) {
  for (const Bytes& id : {Bytes{1, 3}, Bytes{1}, Bytes{1, 2, 0}, Bytes{}}) {
    memory_.Learn(name_, {key_});
    fake_.objects[key_][CKA_ID] = id;
    LetTheLookGrowOld();
    EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  }
}

TEST_F(SearchMemoryTest, HandleThatNowNamesAnotherClassIsForgotten) {
  fake_.objects[key_][CKA_CLASS] = FakeModule::Number(CKO_PUBLIC_KEY);
  LetTheLookGrowOld();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
}

TEST_F(SearchMemoryTest, OneOfSeveralObjectsChangedForgetsThemAll) {
  const auto second = fake_.Add(fake_.objects[key_]);
  memory_.Learn(name_, {key_, second});
  memory_.Learn({CKO_PUBLIC_KEY, {9}}, {key_});
  fake_.objects[second][CKA_ID] = {7};
  LetTheLookGrowOld();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  EXPECT_EQ(memory_.Recall(1, {CKO_PUBLIC_KEY, {9}}), nullptr);
}

TEST_F(SearchMemoryTest, TokenWithAnotherSerialNumberOrLabelIsAnother) {
  fake_.slots[0].serial = "0002";
  LetTheLookGrowOld();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  memory_.Learn(name_, {key_});
  fake_.slots[0].label = "Another";
  LetTheLookGrowOld();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
}

TEST_F(SearchMemoryTest, TokenThatDoesNotTellWhoItIsIsForgotten) {
  LetTheLookGrowOld();
  fake_.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  fake_.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_PRESENT);
  memory_.Learn(name_, {key_});
  EXPECT_TRUE(memory_.is_empty());
}

TEST_F(SearchMemoryTest, NothingFoundIsNotRemembered) {
  memory_.Learn({CKO_PRIVATE_KEY, {5}}, {});
  EXPECT_EQ(memory_.Recall(1, {CKO_PRIVATE_KEY, {5}}), nullptr);
}

TEST_F(SearchMemoryTest, LaterSearchReplacesTheEarlier) {
  const auto other = fake_.Add(fake_.objects[key_]);
  memory_.Learn(name_, {other});
  EXPECT_EQ(Recall(name_), Handles{other});
  EXPECT_EQ(memory_.NameOf(key_), nullptr);
  ASSERT_NE(memory_.NameOf(other), nullptr);
  EXPECT_EQ(*memory_.NameOf(other), name_);
}

TEST_F(SearchMemoryTest, ForgettingForgetsEverything) {
  memory_.Forget();
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
  EXPECT_EQ(memory_.NameOf(key_), nullptr);
  EXPECT_TRUE(memory_.is_empty());
}

TEST_F(SearchMemoryTest, LengthsThatTheModuleMakesUpAreNotBelieved) {
  LetTheLookGrowOld();
  fake_.claimed_excess = 100;
  EXPECT_EQ(memory_.Recall(1, name_), nullptr);
}

}  // namespace
}  // namespace kelvrin::adapter
