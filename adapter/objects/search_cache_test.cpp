#include "adapter/objects/search_cache.h"

#include "adapter/testing/card_fixture.h"
#include "tests/module/faults.h"

namespace kelvrin::adapter {
namespace {

class SearchCacheTest : public CardTest {
 protected:
  SearchCacheTest() { cache_.Learn(name_, {key_}); }
  // What is recalled; nothing found is never remembered.
  Handles Recall(const ObjectName& name) {
    const Handles* const found = cache_.Recall(session_, name);
    return found != nullptr ? *found : Handles();
  }

  SearchCache cache_{inner_};
  const ObjectName name_ = {CKO_PRIVATE_KEY, {1, 2}};
  const CK_OBJECT_HANDLE key_ = Add(CKO_PRIVATE_KEY, {1, 2});
};

TEST_F(SearchCacheTest, UnknownNamesCostNoCallAndOthersOneRead) {
  EXPECT_EQ(cache_.Recall(session_, {CKO_PRIVATE_KEY, {1}}), nullptr);
  EXPECT_EQ(cache_.Recall(session_, {CKO_PUBLIC_KEY, {1, 2}}), nullptr);
  EXPECT_EQ(cache_.NameOf(key_ + 1), nullptr);
  EXPECT_EQ(module.Count(), 0u);
  cache_.Learn(name_, {key_, 777});
  EXPECT_EQ(Recall(name_), (Handles{key_, 777}));
  EXPECT_EQ(module.Calls(), std::vector<std::string>{"C_GetAttributeValue"}) << "of the first";
}

TEST_F(SearchCacheTest, WhoAsksForOneThingOverAndOverHasItLookedAtNowAndThen) {
  const auto looks = [&](unsigned recalls) {
    module.ForgetCalls();
    for (unsigned i = 0; i < recalls; ++i) EXPECT_EQ(Recall(name_), Handles{key_});
    return module.Count();
  };
  EXPECT_EQ(looks(SearchCache::kSteady), SearchCache::kSteady);
  EXPECT_EQ(looks(SearchCache::kLookEvery - SearchCache::kSteady - 1), 0u);
  EXPECT_EQ(looks(1), 1u);
  EXPECT_EQ(looks(SearchCache::kLookEvery), 1u);
  Recall({CKO_PUBLIC_KEY, {9}});
  EXPECT_EQ(looks(3), 3u) << "after something else each time again";
}

TEST_F(SearchCacheTest, ObjectThatIsNoLongerWhatItWasForgetsEverything) {
  const CK_OBJECT_HANDLE other = Add(CKO_PUBLIC_KEY, {9});
  const std::vector<std::pair<std::string, std::function<void()>>> changes = {
      {"refused object",
       [&] { module.FailNext("C_GetAttributeValue", CKR_OBJECT_HANDLE_INVALID); }},
      {"another CKA_ID", [&] { Attribute(key_, CKA_ID) = {1, 3}; }},
      {"shorter CKA_ID", [&] { Attribute(key_, CKA_ID) = {1}; }},
      {"longer CKA_ID", [&] { Attribute(key_, CKA_ID) = {1, 2, 0}; }},
      {"empty CKA_ID", [&] { Attribute(key_, CKA_ID) = {}; }},
      {"no CKA_ID", [&] { Erase(key_, CKA_ID); }},
      {"another class", [&] { Attribute(key_, CKA_CLASS) = MemoryObject::Number(CKO_PUBLIC_KEY); }},
      {"short class", [&] { Attribute(key_, CKA_CLASS) = Bytes(4, CKO_PRIVATE_KEY); }},
      {"CKA_ID of length -1", [&] { faults::ReadsLengthMinusOne(module, CKA_ID); }},
      {"class of length -1", [&] { faults::ReadsLengthMinusOne(module, CKA_CLASS); }},
  };
  for (const auto& [name, change] : changes) {
    module.over = {};
    Attribute(key_, CKA_CLASS) = MemoryObject::Number(CKO_PRIVATE_KEY);
    Attribute(key_, CKA_ID) = {1, 2};
    cache_.Learn(name_, {key_});
    cache_.Learn({CKO_PUBLIC_KEY, {9}}, {other});
    change();
    EXPECT_EQ(cache_.Recall(session_, name_), nullptr) << name;
    EXPECT_EQ(cache_.Recall(session_, {CKO_PUBLIC_KEY, {9}}), nullptr) << name;
    EXPECT_EQ(cache_.NameOf(key_), nullptr) << name;
    EXPECT_EQ(cache_.NameOf(other), nullptr) << name;
  }
}

TEST_F(SearchCacheTest, NothingFoundIsNotRememberedNorDoesItForget) {
  cache_.Learn({CKO_PRIVATE_KEY, {5}}, {});
  EXPECT_EQ(cache_.Recall(session_, {CKO_PRIVATE_KEY, {5}}), nullptr);
  cache_.Learn(name_, {});
  EXPECT_EQ(Recall(name_), Handles{key_});
}

TEST_F(SearchCacheTest, LaterSearchReplacesTheEarlier) {
  const CK_OBJECT_HANDLE other = Add(CKO_PRIVATE_KEY, {1, 2});
  cache_.Learn(name_, {other});
  EXPECT_EQ(Recall(name_), Handles{other});
  EXPECT_EQ(cache_.NameOf(key_), nullptr);
  ASSERT_NE(cache_.NameOf(other), nullptr);
  EXPECT_EQ(*cache_.NameOf(other), name_);
}

TEST_F(SearchCacheTest, ForgettingForgetsEverything) {
  cache_.Forget();
  EXPECT_EQ(cache_.Recall(session_, name_), nullptr);
  EXPECT_EQ(cache_.NameOf(key_), nullptr);
}

}  // namespace
}  // namespace kelvrin::adapter
