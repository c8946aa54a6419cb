#include "adapter/worker_session.h"

#include <gtest/gtest.h>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_SESSION_HANDLE kCaller = 33;
constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

class WorkerSessionTest : public testing::Test {
 protected:
  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  SessionHandles handles_;
  WorkerSession worker_{functions_, handles_, 7, kFlags, kCaller, true};
  int starts_ = 0;

  // Begins an operation whose n-th start gives the n-th result, then CKR_OK.
  CK_RV Begin(std::vector<CK_RV> results) {
    starts_ = 0;
    return worker_.Begin([&](CK_SESSION_HANDLE session) {
      EXPECT_TRUE(session == kCaller || fake_.sessions.contains(session));
      const std::size_t turn = static_cast<std::size_t>(starts_++);
      return turn < results.size() ? results[turn] : CK_RV{CKR_OK};
    });
  }
};

TEST_F(WorkerSessionTest, FailureToOpenIsPassedOn) {
  fake_.FailNext("C_OpenSession", CKR_DEVICE_REMOVED);
  EXPECT_EQ(Begin({}), CKR_DEVICE_REMOVED);
  EXPECT_EQ(starts_, 0);
  EXPECT_FALSE(worker_.is_open());
}

TEST_F(WorkerSessionTest, InvalidHandleFromTheModuleIsNotUsed) {
  fake_.next_session = CK_INVALID_HANDLE;
  EXPECT_EQ(Begin({}), CKR_DEVICE_ERROR);
  EXPECT_EQ(starts_, 0);
}

TEST_F(WorkerSessionTest, FailureToStartClosesTheWorker) {
  EXPECT_EQ(Begin({CKR_KEY_HANDLE_INVALID}), CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(starts_, 1);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(WorkerSessionTest, FreshSessionIsNotTriedTwice) {
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE}), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(starts_, 1);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(WorkerSessionTest, StaleSessionIsReplacedOnce) {
  for (const CK_RV stale : {CKR_OPERATION_ACTIVE, CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED}) {
    ASSERT_EQ(Begin({}), CKR_OK);
    const CK_SESSION_HANDLE before = worker_.handle();
    EXPECT_EQ(Begin({stale}), CKR_OK);
    EXPECT_EQ(starts_, 2);
    EXPECT_NE(worker_.handle(), before);
    EXPECT_EQ(fake_.sessions.size(), 1u);
  }
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE, CKR_OPERATION_ACTIVE}), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(starts_, 2);
}

TEST_F(WorkerSessionTest, IsOpenedOnceWithTheCallersSlotAndFlags) {
  EXPECT_FALSE(worker_.is_open());
  EXPECT_EQ(Begin({}), CKR_OK);
  EXPECT_EQ(Begin({}), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_OpenSession"), 1u);
  const auto& session = fake_.sessions.at(worker_.handle());
  EXPECT_EQ(session.slot, 7u);
  EXPECT_EQ(session.flags, kFlags);
}

TEST_F(WorkerSessionTest, ClosingTwiceClosesOnce) {
  ASSERT_EQ(Begin({}), CKR_OK);
  worker_.Close();
  worker_.Close();
  EXPECT_EQ(fake_.Calls("C_CloseSession"), 1u);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(WorkerSessionTest, HandleOfTheCallersOwnSessionIsNotUsed) {
  fake_.next_session = kCaller;
  EXPECT_EQ(Begin({}), CKR_DEVICE_ERROR);
  EXPECT_EQ(starts_, 0);
}

TEST_F(WorkerSessionTest, CallersSessionWorksWhereTheTokenHasNoSessionLeft) {
  fake_.FailNext("C_OpenSession", CKR_SESSION_COUNT);
  EXPECT_EQ(Begin({}), CKR_OK);
  EXPECT_EQ(worker_.handle(), kCaller);
  EXPECT_FALSE(worker_.is_own());
}

TEST_F(WorkerSessionTest, OperationOnTheCallersSessionIsEndedAndNotTheSession) {
  fake_.sessions[kCaller] = {};
  for (int i = 0; i < 2; ++i) fake_.FailNext("C_OpenSession", CKR_SESSION_COUNT);
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE}), CKR_OK);
  EXPECT_EQ(starts_, 2);
  EXPECT_EQ(fake_.Calls("C_SignFinal"), 1u);
  EXPECT_EQ(fake_.Calls("C_CloseSession"), 0u);
}

TEST_F(WorkerSessionTest, HandleThatTheModuleGaveToSomebodyElseIsNeitherUsedNorClosed) {
  ASSERT_EQ(Begin({}), CKR_OK);
  const CK_SESSION_HANDLE before = worker_.handle();
  HeldSession other(handles_, 7);
  other.Take(before);
  EXPECT_FALSE(worker_.is_open());
  worker_.Close();
  EXPECT_EQ(fake_.Calls("C_CloseSession"), 0u);
  EXPECT_EQ(Begin({}), CKR_OK);
  EXPECT_NE(worker_.handle(), before);
  EXPECT_EQ(other.handle(), before);
}

TEST_F(WorkerSessionTest, NoWorkerIsOpenedWhereNoneIsWanted) {
  WorkerSession none(functions_, handles_, 7, kFlags, kCaller, false);
  const auto start = [](CK_SESSION_HANDLE session) -> CK_RV {
    EXPECT_EQ(session, kCaller);
    return CKR_OPERATION_ACTIVE;
  };
  EXPECT_EQ(none.Begin(start), CKR_OPERATION_ACTIVE);
  none.Close();
  EXPECT_EQ(fake_.Calls("C_OpenSession") + fake_.Calls("C_SignFinal"), 0u);
}

}  // namespace
}  // namespace kelvrin::adapter
