#include "adapter/operations/worker_session.h"

#include "adapter/testing/card_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;

class WorkerSessionTest : public CardTest {
 protected:
  // Begins an operation whose n-th start gives the n-th result, then CKR_OK.
  CK_RV Begin(const std::vector<CK_RV>& results = {}) {
    started_on_.clear();
    return worker_.Begin([&](CK_SESSION_HANDLE session) {
      EXPECT_TRUE(module.sessions.contains(session));
      started_on_.push_back(session);
      const std::size_t turn = started_on_.size() - 1;
      return turn < results.size() ? results[turn] : CK_RV{CKR_OK};
    });
  }
  bool HasNoWorker() const { return !worker_.is_open() && module.sessions.size() == 1; }

  std::vector<CK_SESSION_HANDLE> noted_;
  bool token_lives_ = true;
  std::vector<CK_SESSION_HANDLE> started_on_;
  WorkerSession worker_{inner_, slot_, kFlags, session_, [this](CK_SESSION_HANDLE handle) {
                          noted_.push_back(handle);
                          return token_lives_;
                        }};
};

TEST_F(WorkerSessionTest, SessionThatCannotBeHadStartsNothing) {
  module.FailNext("C_OpenSession", CKR_DEVICE_REMOVED);
  EXPECT_EQ(Begin(), CKR_DEVICE_REMOVED);
  EXPECT_TRUE(HasNoWorker());
  // The handle was that of another session on the token, which the module has lost.
  token_lives_ = false;
  EXPECT_EQ(Begin(), CKR_TOKEN_NOT_PRESENT);
  EXPECT_TRUE(HasNoWorker());
  EXPECT_EQ(noted_.size(), 1u);
  module.next_session = CK_INVALID_HANDLE;
  EXPECT_EQ(Begin(), CKR_DEVICE_ERROR);
  EXPECT_TRUE(started_on_.empty());
  EXPECT_EQ(noted_.size(), 1u);
}

TEST_F(WorkerSessionTest, StaleSessionIsReplacedOnce) {
  for (const CK_RV stale : {CKR_OPERATION_ACTIVE, CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED}) {
    ASSERT_EQ(Begin(), CKR_OK);
    EXPECT_EQ(Begin({stale}), CKR_OK);
    ASSERT_EQ(started_on_.size(), 2u);
    EXPECT_NE(started_on_[0], started_on_[1]);
    EXPECT_EQ(module.sessions.size(), 2u);
  }
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE, CKR_OPERATION_ACTIVE}), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(started_on_.size(), 2u);
  EXPECT_TRUE(HasNoWorker());
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE}), CKR_OPERATION_ACTIVE) << "a fresh one is not at fault";
  EXPECT_EQ(started_on_.size(), 1u);
}

TEST_F(WorkerSessionTest, OtherFailuresAndThoseOfTheCallersSessionTooAreNotTriedAgain) {
  ASSERT_EQ(Begin(), CKR_OK);
  EXPECT_EQ(Begin({CKR_DEVICE_ERROR}), CKR_DEVICE_ERROR);
  EXPECT_EQ(started_on_.size(), 1u);
  ASSERT_EQ(Begin(), CKR_OK);
  module.FailNext("C_GetSessionInfo", CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(Begin({CKR_SESSION_HANDLE_INVALID}), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(started_on_.size(), 1u);
}

TEST_F(WorkerSessionTest, ClosingTwiceClosesOnceAndDroppingNever) {
  ASSERT_EQ(Begin(), CKR_OK);
  worker_.Close();
  worker_.Close();
  EXPECT_EQ(module.Count("C_CloseSession"), 1u);
  EXPECT_TRUE(HasNoWorker());
  ASSERT_EQ(Begin(), CKR_OK);
  worker_.Drop();
  worker_.Close();
  EXPECT_EQ(module.Count("C_CloseSession"), 1u);
  EXPECT_FALSE(worker_.is_open());
}

// Where the token has no session left; that one is never closed, but what is open on it is ended.
TEST_F(WorkerSessionTest, CallersSessionWorksInTheWorkersPlace) {
  std::vector<CK_ULONG> rooms;
  module.over.C_SignFinal =
      module.over.C_DecryptFinal = [&](CK_SESSION_HANDLE session, CK_BYTE* result, CK_ULONG* size) {
        EXPECT_EQ(session, session_);
        rooms.push_back(*size);
        std::fill_n(result, *size, 7);
        *size = 0;
        return CK_RV{CKR_OK};
      };
  for (int i = 0; i < 2; ++i) module.FailNext("C_OpenSession", CKR_SESSION_COUNT);
  EXPECT_EQ(Begin({CKR_OPERATION_ACTIVE}), CKR_OK);
  EXPECT_EQ(started_on_, (std::vector<CK_SESSION_HANDLE>{session_, session_}));
  EXPECT_EQ(rooms, (std::vector<CK_ULONG>{4096, 4096}));
  EXPECT_EQ(module.Count("C_SignFinal"), 1u);
  EXPECT_EQ(module.Count("C_DecryptFinal"), 1u);
  EXPECT_EQ(module.Count("C_CloseSession"), 0u);
  EXPECT_TRUE(HasNoWorker());
  EXPECT_TRUE(noted_.empty());
  EXPECT_EQ(Begin(), CKR_OK);
  EXPECT_NE(started_on_[0], session_) << "there is one again";
}

}  // namespace
}  // namespace kelvrin::adapter
