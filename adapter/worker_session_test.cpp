#include "adapter/worker_session.h"

#include <gtest/gtest.h>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

class WorkerSessionTest : public testing::Test {
 protected:
  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  WorkerSession worker_{functions_, 7, kFlags};
  int starts_ = 0;

  // Begins an operation whose n-th start gives the n-th result, then CKR_OK.
  CK_RV Begin(std::vector<CK_RV> results) {
    starts_ = 0;
    return worker_.Begin([&](CK_SESSION_HANDLE session) {
      EXPECT_TRUE(fake_.sessions.contains(session));
      const std::size_t turn = static_cast<std::size_t>(starts_++);
      return turn < results.size() ? results[turn] : CK_RV{CKR_OK};
    });
  }
};

TEST_F(WorkerSessionTest, FailureToOpenIsPassedOn) {
  fake_.FailNext("C_OpenSession", CKR_SESSION_COUNT);
  EXPECT_EQ(Begin({}), CKR_SESSION_COUNT);
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

}  // namespace
}  // namespace kelvrin::adapter
