#include "adapter/search.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <utility>

#include "adapter/testing/fake_module.h"
#include "adapter/testing/living_threads.h"

namespace kelvrin::adapter {
namespace {

class SearchTest : public testing::Test {
 protected:
  SearchTest() {
    functions_.C_OpenSession(7, CKF_SERIAL_SESSION, nullptr, nullptr, &session_);
    for (int i = 0; i < 150; ++i) {
      objects_.push_back(fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_CERTIFICATE)}}));
    }
    key_ = fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_PUBLIC_KEY)}});
  }
  CK_RV Run(CK_OBJECT_CLASS object_class) {
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    Handles found;
    const CK_RV result = FindAll(functions_, session_, {&wanted, 1}, &found);
    search_ = Search(std::move(found));
    return result;
  }
  std::vector<CK_OBJECT_HANDLE> Take(CK_ULONG room) {
    std::vector<CK_OBJECT_HANDLE> objects(room);
    objects.resize(search_.Next(objects.data(), room));
    return objects;
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  CK_SESSION_HANDLE session_ = 0;
  std::vector<CK_OBJECT_HANDLE> objects_;
  CK_OBJECT_HANDLE key_ = 0;
  Search search_{{}};
};

TEST_F(SearchTest, FailureToBeginIsPassedOnWithoutResults) {
  ASSERT_EQ(Run(CKO_PUBLIC_KEY), CKR_OK);
  fake_.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(CKO_PUBLIC_KEY), CKR_DEVICE_ERROR);
  EXPECT_TRUE(Take(10).empty());
}

TEST_F(SearchTest, FailureInTheMiddleEndsTheModulesSearch) {
  fake_.FailNext("C_FindObjects", CKR_OK);
  fake_.FailNext("C_FindObjects", CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(CKO_CERTIFICATE), CKR_DEVICE_ERROR);
  EXPECT_TRUE(Take(10).empty());
  EXPECT_FALSE(fake_.sessions.at(session_).searching);
}

TEST_F(SearchTest, CountBeyondTheRoomIsNotBelieved) {
  fake_.claimed_excess = 1000;
  EXPECT_EQ(Run(CKO_CERTIFICATE), CKR_DEVICE_ERROR);
  EXPECT_FALSE(fake_.sessions.at(session_).searching);
}

TEST_F(SearchTest, ModuleThatNeverStopsIsStopped) {
  fake_.claimed_excess = 1;  // each answer holds one object more, for ever
  EXPECT_EQ(Run(CKO_DATA), CKR_DEVICE_ERROR);
  EXPECT_FALSE(fake_.sessions.at(session_).searching);
}

TEST_F(SearchTest, SearchThatTheModuleStillHoldsOpenIsEnded) {
  ASSERT_EQ(functions_.C_FindObjectsInit(session_, nullptr, 0), CKR_OK);
  EXPECT_EQ(Run(CKO_PUBLIC_KEY), CKR_OK);
  EXPECT_EQ(Take(10), std::vector<CK_OBJECT_HANDLE>{key_});
}

TEST_F(SearchTest, NoMatchGivesNoObjects) {
  EXPECT_EQ(Run(CKO_DATA), CKR_OK);
  EXPECT_TRUE(Take(10).empty());
}

TEST_F(SearchTest, ResultsComeInTheModulesOrderAndInPieces) {
  EXPECT_EQ(Run(CKO_CERTIFICATE), CKR_OK);
  EXPECT_FALSE(fake_.sessions.at(session_).searching);
  std::vector<CK_OBJECT_HANDLE> all = Take(20);
  EXPECT_EQ(all.size(), 20u);
  const std::vector<CK_OBJECT_HANDLE> rest = Take(1000);
  all.insert(all.end(), rest.begin(), rest.end());
  EXPECT_EQ(all, objects_);
  EXPECT_TRUE(Take(10).empty());
  EXPECT_EQ(search_.Next(nullptr, 0), 0u);
}

TEST_F(SearchTest, NewSearchReplacesTheOldOne) {
  ASSERT_EQ(Run(CKO_CERTIFICATE), CKR_OK);
  Take(3);
  EXPECT_EQ(Run(CKO_PUBLIC_KEY), CKR_OK);
  EXPECT_EQ(Take(10), std::vector<CK_OBJECT_HANDLE>{key_});
}

// The objects that the calling thread reads next.
Handles Read(Searches& searches) {
  Handles objects(10);
  Search* const search = searches.Current();
  objects.resize(search != nullptr ? search->Next(objects.data(), objects.size()) : 0);
  return objects;
}

TEST(SearchesTest, WithoutASearchThereIsNothingToReadOrToClose) {
  Searches searches;
  EXPECT_EQ(searches.Current(), nullptr);
  EXPECT_FALSE(searches.Close());
}

TEST(SearchesTest, EachThreadReadsItsOwn) {
  Searches searches;
  searches.Open(Search({1}));
  std::thread([&] {
    searches.Open(Search({2}));
    EXPECT_EQ(Read(searches), Handles{2});
  }).join();
  EXPECT_EQ(Read(searches), Handles{1});
}

TEST(SearchesTest, ThreadWithoutOneReadsWhatAnotherHasOpened) {
  Searches searches;
  searches.Open(Search({1}));
  std::thread([&] {
    EXPECT_EQ(Read(searches), Handles{1});
    EXPECT_TRUE(searches.Close());
  }).join();
  EXPECT_FALSE(searches.Close());
}

TEST(SearchesTest, FailedSearchTakesOnlyTheThreadsOwnAway) {
  Searches searches;
  searches.Open(Search({1}));
  std::thread([&] { searches.DropOwn(); }).join();
  EXPECT_EQ(Read(searches), Handles{1});
  searches.DropOwn();
  EXPECT_EQ(searches.Current(), nullptr);
}

TEST(SearchesTest, OfManyThatNobodyFinishesTheOldestGo) {
  Searches searches;
  searches.Open(Search({99}));
  LivingThreads threads;
  for (CK_OBJECT_HANDLE i = 0; i < 31; ++i) {
    threads.Run([&] { searches.Open(Search({i})); });
  }
  EXPECT_EQ(Read(searches), Handles{99});
  threads.Run([&] { searches.Open(Search({31})); });
  EXPECT_EQ(Read(searches), Handles{31}) << "its own is gone, so the last one opened";
}

}  // namespace
}  // namespace kelvrin::adapter
