// What is remembered of a token, and for how long.
#include <array>

#include "adapter/objects/testing/token_objects_fixture.h"
#include "tests/module/faults.h"

namespace kelvrin::adapter {
namespace {

// --- what is remembered ---

TEST_F(TokenObjectsTest, FailedSearchIsPassedOnAndForgetsWhatWasLearned) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {1});
  for (const std::optional<Bytes>& id : {std::optional<Bytes>(), std::optional(Bytes{2})}) {
    EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{1}), Handles{key});
    module.ForgetCalls();
    module.FailNext("C_FindObjectsInit", CKR_DEVICE_REMOVED);
    Handles found = {99};
    EXPECT_EQ(TryFind(CKO_PRIVATE_KEY, id, &found), CKR_DEVICE_REMOVED);
    EXPECT_EQ(found, Handles());
    EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{1}), Handles{key});
    EXPECT_EQ(Searches(), 2u);
  }
}

// Nothing is signed with another key than the one asked for.
TEST_F(TokenObjectsTest, PrivateKeyThatAModuleFindsByAnotherIdIsDropped) {
  const auto other = AddObject(CKO_PRIVATE_KEY, {2});
  const auto secretive = AddObject(CKO_PRIVATE_KEY, {2});
  Erase(secretive, CKA_ID);
  const auto public_key = AddObject(CKO_PUBLIC_KEY, {2});
  module.over.C_FindObjectsInit = [&](CK_SESSION_HANDLE session, CK_ATTRIBUTE* wanted, CK_ULONG) {
    return module.standard.C_FindObjectsInit(session, wanted, 1);  // finds every CKA_ID
  };
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{1}), Handles{secretive});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{2}), (Handles{other, secretive}));
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}), Handles{public_key});
}

TEST_F(TokenObjectsTest, OnlySearchesForOneClassAndOneIdAreRemembered) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {});
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE label = 'x';
  Bytes long_id(4097, 7);
  const CK_ATTRIBUTE is_key = {CKA_CLASS, &object_class, sizeof(object_class)};
  const CK_ATTRIBUTE has_id = {CKA_ID, nullptr, 0};
  module.over.C_FindObjectsInit = [&](CK_SESSION_HANDLE session, CK_ATTRIBUTE*, CK_ULONG) {
    return module.standard.C_FindObjectsInit(session, nullptr, 0);
  };
  struct Row {
    const char* name;
    std::vector<CK_ATTRIBUTE> wanted;
    std::size_t searches;  // of two
  };
  for (Row& row :
       std::vector<Row>{{"class and empty CKA_ID", {is_key, has_id}, 1},
                        {"label too", {is_key, has_id, {CKA_LABEL, &label, 1}}, 2},
                        {"CKA_ID alone", {has_id}, 2},
                        {"class alone", {is_key}, 2},
                        {"class twice", {is_key, is_key, has_id}, 2},
                        {"CKA_ID twice", {is_key, has_id, has_id}, 2},
                        {"short class", {{CKA_CLASS, &object_class, 3}, has_id}, 2},
                        {"null class", {{CKA_CLASS, nullptr, sizeof(object_class)}, has_id}, 2},
                        {"null CKA_ID", {is_key, {CKA_ID, nullptr, 5}}, 2},
                        {"long CKA_ID", {is_key, {CKA_ID, long_id.data(), long_id.size()}}, 2}}) {
    objects_.Forget();
    module.ForgetCalls();
    for (int i = 0; i < 2; ++i) {
      Handles found;
      EXPECT_EQ(objects_.Find(session_, row.wanted, &found), CKR_OK) << row.name;
      EXPECT_EQ(found, Handles{key}) << row.name;
    }
    EXPECT_EQ(Searches(), row.searches) << row.name;
  }
}

// --- refused handles ---

TEST_F(TokenObjectsTest, HandleThatIsRefusedIsReplacedOnceByWhatTheSearchFindsNow) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {1});
  for (const CK_RV refusal : {CKR_OBJECT_HANDLE_INVALID, CKR_KEY_HANDLE_INVALID}) {
    const Handles found = Find(CKO_PRIVATE_KEY, Bytes{1});
    card_.Rehandle(found[0], module.next_object++);
    Handles tried;
    const auto refuse = [&](CK_OBJECT_HANDLE object) {
      tried.push_back(object);
      return refusal;
    };
    EXPECT_EQ(objects_.WithCurrent(session_, found[0], refuse), refusal);
    EXPECT_EQ(tried, (Handles{found[0], module.next_object - 1}));
    EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{1}), Handles{module.next_object - 1});
  }
  int calls = 0;
  EXPECT_EQ(objects_.WithCurrent(session_, key,
                                 [&](CK_OBJECT_HANDLE) { return ++calls, CKR_DEVICE_ERROR; }),
            CKR_DEVICE_ERROR);
  EXPECT_EQ(calls, 1);
}

TEST_F(TokenObjectsTest, WhatCannotBeFoundAgainIsNotReplaced) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {1});
  EXPECT_FALSE(objects_.FindAgain(session_, key)) << "never found before";
  EXPECT_EQ(module.Count(), 0u);
  Find(CKO_PRIVATE_KEY, Bytes{1});
  module.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
  EXPECT_FALSE(objects_.FindAgain(session_, key));
  Find(CKO_PRIVATE_KEY, Bytes{1});
  card_.objects.clear();
  EXPECT_FALSE(objects_.FindAgain(session_, key)) << "gone";
  EXPECT_FALSE(objects_.FindAgain(session_, key));
  EXPECT_EQ(Searches(), 4u) << "and forgotten";
}

// --- facts and mechanisms ---

TEST_F(TokenObjectsTest, FactsAreReadOnceForAKeyThatASearchHasFound) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {1});
  const auto size = [&] { return objects_.Facts(session_, key, true).size; };
  Attribute(key, CKA_MODULUS) = Bytes(256, 0xff);
  EXPECT_EQ(size(), 256u);
  Attribute(key, CKA_MODULUS) = Bytes(512, 0xff);
  EXPECT_EQ(size(), 512u) << "nobody searched for it";
  Find(CKO_PRIVATE_KEY, Bytes{1});
  EXPECT_EQ(size(), 512u);
  module.ForgetCalls();
  EXPECT_EQ(size(), 512u);
  EXPECT_EQ(module.Count(), 0u);
  objects_.LearnSize(key, 3);
  EXPECT_EQ(size(), 3u);
  objects_.Forget();
  objects_.LearnSize(key, 3);
  EXPECT_EQ(size(), 512u);
}

TEST_F(TokenObjectsTest, FactsOfAnRsaKeyDependOnTheSlot) {
  const auto key = AddObject(CKO_PRIVATE_KEY, {1});
  EXPECT_FALSE(objects_.Facts(session_, key, true).lacks_raw_rsa);
  card_.mechanisms = {CKM_RSA_PKCS};
  objects_.Forget();
  EXPECT_TRUE(objects_.Facts(session_, key, true).lacks_raw_rsa);
  objects_.Forget();
  module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
  EXPECT_FALSE(objects_.Facts(session_, key, true).lacks_raw_rsa) << "unknown is not lacking";
  module.ForgetCalls();
  objects_.Facts(session_, key, false);
  EXPECT_EQ(module.Count("C_GetMechanismList"), 0u) << "an EC key's do not";
}

TEST_F(TokenObjectsTest, MechanismsAreReadOnceAndAnEmptyListIsNotRemembered) {
  faults::EmptyMechanismListOnce(module);
  Mechanisms mechanisms = {1};
  EXPECT_EQ(objects_.GetMechanisms(&mechanisms), CKR_OK);
  EXPECT_TRUE(mechanisms.empty());
  module.FailNext("C_GetMechanismList", CKR_OK);
  module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
  EXPECT_EQ(objects_.GetMechanisms(&mechanisms), CKR_DEVICE_ERROR);
  for (int i = 0; i < 2; ++i) {
    module.ForgetCalls();
    EXPECT_EQ(objects_.GetMechanisms(&mechanisms), CKR_OK);
    EXPECT_EQ(mechanisms, card_.mechanisms);
  }
  EXPECT_EQ(module.Count(), 0u);
  objects_.Forget();
  EXPECT_EQ(objects_.GetMechanisms(&mechanisms), CKR_OK);
  EXPECT_EQ(module.Count("C_GetMechanismList"), 2u);
}

}  // namespace
}  // namespace kelvrin::adapter
