#include "adapter/session_handles.h"

#include <gtest/gtest.h>

namespace kelvrin::adapter {
namespace {

class SessionHandlesTest : public testing::Test {
 protected:
  SessionHandles handles_;
  HeldSession first_{handles_, 1};
  HeldSession second_{handles_, 2};
};

TEST_F(SessionHandlesTest, NothingIsHeldAtFirst) {
  EXPECT_FALSE(first_.is_held());
  first_.Release();
  handles_.LoseAll();
  EXPECT_EQ(handles_.losses(), 0u);
}

TEST_F(SessionHandlesTest, WhoGotAHandleLastHoldsIt) {
  first_.Take(5);
  second_.Take(5);
  EXPECT_EQ(first_.handle(), CK_INVALID_HANDLE);
  EXPECT_EQ(second_.handle(), 5u);
  EXPECT_EQ(handles_.losses(), 1u);
  first_.Release();
  first_.Take(6);
  EXPECT_EQ(second_.handle(), 5u) << "a loser takes nothing with it";
  EXPECT_EQ(handles_.losses(), 1u);
}

TEST_F(SessionHandlesTest, HandleThatWasGivenBackIsNobodysLoss) {
  first_.Take(5);
  first_.Release();
  second_.Take(5);
  second_.Take(6);
  first_.Take(5);
  {
    HeldSession third(handles_, 1);
    third.Take(7);
  }
  second_.Take(7);
  EXPECT_EQ(first_.handle(), 5u);
  EXPECT_EQ(second_.handle(), 7u);
  EXPECT_EQ(handles_.losses(), 0u);
}

TEST_F(SessionHandlesTest, SlotsOfLossesAreToldOnce) {
  first_.Take(5);
  second_.Take(5);
  handles_.Lose(5);
  handles_.Lose(5);
  handles_.Lose(6);
  EXPECT_EQ(handles_.losses(), 2u);
  EXPECT_EQ(handles_.TakeSlotsOfLosses(), (std::set<CK_SLOT_ID>{1, 2}));
  EXPECT_TRUE(handles_.TakeSlotsOfLosses().empty());
}

TEST_F(SessionHandlesTest, SlotsOfSessionsThatAreHeldAreKnown) {
  EXPECT_FALSE(handles_.AreOn(1));
  first_.Take(5);
  EXPECT_TRUE(handles_.AreOn(1));
  EXPECT_FALSE(handles_.AreOn(2));
  second_.Take(5);
  EXPECT_FALSE(handles_.AreOn(1));
  second_.Release();
  EXPECT_FALSE(handles_.AreOn(2));
}

TEST_F(SessionHandlesTest, ModuleThatIsBroughtUpAnewTakesAll) {
  first_.Take(4);
  second_.Take(4);
  first_.Take(5);
  second_.Take(6);
  handles_.LoseAll();
  EXPECT_TRUE(handles_.TakeSlotsOfLosses().empty()) << "it knows no login from before";
  EXPECT_FALSE(first_.is_held());
  EXPECT_FALSE(second_.is_held());
  EXPECT_EQ(handles_.losses(), 3u);
  second_.Take(5);
  EXPECT_EQ(handles_.losses(), 3u);
}

}  // namespace
}  // namespace kelvrin::adapter
