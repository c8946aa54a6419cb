#include "adapter/objects/search.h"

#include <utility>

#include "adapter/testing/card_fixture.h"

namespace kelvrin::adapter {
namespace {

class SearchTest : public CardTest {
 protected:
  SearchTest() {
    for (int i = 0; i < 150; ++i) certificates_.push_back(Add(CKO_CERTIFICATE, {}));
    key_ = Add(CKO_PUBLIC_KEY, {});
  }
  CK_RV Run(CK_OBJECT_CLASS object_class, Handles* found) {
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    return FindAll(inner_, session_, {&wanted, 1}, found);
  }
  bool IsSearching() { return module.FindSession(session_)->search.has_value(); }
  // The module finds this many objects of any kind.
  void FindEndlessly(std::size_t count) {
    module.over.C_FindObjects = [count](CK_SESSION_HANDLE, CK_OBJECT_HANDLE* objects, CK_ULONG room,
                                        CK_ULONG* given) mutable -> CK_RV {
      *given = std::min<std::size_t>(room, count);
      std::fill_n(objects, *given, 5);
      count -= *given;
      return CKR_OK;
    };
  }

  Handles certificates_;
  CK_OBJECT_HANDLE key_ = 0;
};

TEST_F(SearchTest, FailureIsPassedOnWithoutResultsAndEndsTheModulesSearch) {
  Handles found = {99};
  module.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
  EXPECT_EQ(Run(CKO_CERTIFICATE, &found), CKR_DEVICE_ERROR);
  EXPECT_EQ(found, Handles());
  EXPECT_EQ(module.Count(), 1u);
  module.FailNext("C_FindObjects", CKR_OK);
  module.FailNext("C_FindObjects", CKR_DEVICE_REMOVED);
  EXPECT_EQ(Run(CKO_CERTIFICATE, &found), CKR_DEVICE_REMOVED);
  EXPECT_EQ(found, Handles());
  EXPECT_FALSE(IsSearching());
}

TEST_F(SearchTest, ModuleThatClaimsMoreThanItsRoomOrNeverStopsIsNotBelieved) {
  Handles found;
  module.over.C_FindObjects = [](CK_SESSION_HANDLE, CK_OBJECT_HANDLE*, CK_ULONG room,
                                 CK_ULONG* count) {
    *count = room + 1;
    return CK_RV{CKR_OK};
  };
  EXPECT_EQ(Run(CKO_CERTIFICATE, &found), CKR_DEVICE_ERROR);
  EXPECT_FALSE(IsSearching());
  constexpr std::size_t kMost = 1U << 20;
  FindEndlessly(kMost);
  EXPECT_EQ(Run(CKO_DATA, &found), CKR_OK);
  EXPECT_EQ(found.size(), kMost);
  FindEndlessly(kMost + 1);
  EXPECT_EQ(Run(CKO_DATA, &found), CKR_DEVICE_ERROR);
  EXPECT_EQ(found, Handles());
  EXPECT_FALSE(IsSearching());
}

TEST_F(SearchTest, AllMatchesComeInTheModulesOrder) {
  Handles found = {99};
  EXPECT_EQ(Run(CKO_DATA, &found), CKR_OK);
  EXPECT_EQ(found, Handles());
  // One module counts its objects from 0.
  card_.Rehandle(certificates_[0], 0);
  certificates_[0] = 0;
  EXPECT_EQ(Run(CKO_CERTIFICATE, &found), CKR_OK);
  EXPECT_EQ(found, certificates_);
  EXPECT_FALSE(IsSearching());
}

TEST_F(SearchTest, ResultsAreHandedOutInPieces) {
  Search search({1, 2, 3});
  Handles taken(10);
  EXPECT_EQ(search.Next(nullptr, 0), 0u);
  EXPECT_EQ(search.Next(taken.data(), 2), 2u);
  EXPECT_EQ(search.Next(taken.data() + 2, 8), 1u);
  EXPECT_EQ(taken, (Handles{1, 2, 3, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(search.Next(taken.data(), 10), 0u);
}

}  // namespace
}  // namespace kelvrin::adapter
