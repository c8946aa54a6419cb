#include "adapter/session_handles.h"

#include <gtest/gtest.h>

namespace kelvrin::adapter {
namespace {

class SessionHandlesTest : public testing::Test {
 protected:
  SessionHandles handles_;
  HeldSession first_{handles_};
  HeldSession second_{handles_};
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
    HeldSession third(handles_);
    third.Take(7);
  }
  second_.Take(7);
  EXPECT_EQ(first_.handle(), 5u);
  EXPECT_EQ(second_.handle(), 7u);
  EXPECT_EQ(handles_.losses(), 0u);
}

TEST_F(SessionHandlesTest, ModuleThatIsBroughtUpAnewTakesAll) {
  first_.Take(5);
  second_.Take(6);
  handles_.LoseAll();
  EXPECT_FALSE(first_.is_held());
  EXPECT_FALSE(second_.is_held());
  EXPECT_EQ(handles_.losses(), 2u);
  second_.Take(5);
  EXPECT_EQ(handles_.losses(), 2u);
}

}  // namespace
}  // namespace kelvrin::adapter
