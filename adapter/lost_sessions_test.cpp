// Sessions that the module has lost, whose handles it gives to others, and sessions that it lacks.
#include <gtest/gtest.h>

#include <array>

#include "adapter/testing/adapter_fixture.h"
#include "adapter/testing/two_adapters_fixture.h"

namespace kelvrin::adapter {
namespace {

class LostSessionsTest : public AdapterTest {
 protected:
  LostSessionsTest() {
    fake_.sign = [](CK_MECHANISM_TYPE, const FakeModule::Bytes&, FakeModule::Bytes* output) {
      *output = {1, 2, 3};
      return CK_RV{CKR_OK};
    };
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  }

  // A session whose worker has the returned handle.
  CK_SESSION_HANDLE WorkerOf(CK_SESSION_HANDLE session) {
    EXPECT_EQ(SignInit(session), CKR_OK);
    return fake_.sessions.rbegin()->first;
  }
  CK_RV Sign(CK_SESSION_HANDLE session, CK_ULONG room = 8) {
    std::array<CK_BYTE, 8> output = {};
    return adapter_.WithOperation(session, [&](KeyOperation& operation) {
      return operation.Run(OperationKind::kSign, output.data(), 1, output.data(), &room);
    });
  }
};

TEST_F(LostSessionsTest, CallersSessionThatGotAWorkersHandleIsLeftAlone) {
  const CK_SESSION_HANDLE old = Open();
  const CK_SESSION_HANDLE handle = WorkerOf(old);
  fake_.LoseSessions(handle);
  ASSERT_EQ(Open(), handle);
  EXPECT_EQ(Sign(old), CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(fake_.sessions.contains(handle));
  ASSERT_EQ(SignInit(old), CKR_OK) << "on another worker";
  EXPECT_FALSE(fake_.sessions.at(handle).operation);
  EXPECT_EQ(adapter_.CloseSession(old), CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(fake_.sessions.contains(handle));
  EXPECT_EQ(SignInit(handle), CKR_OK);
}

TEST_F(LostSessionsTest, LogoutClosesNoSessionThatGotAWorkersHandle) {
  const CK_SESSION_HANDLE handle = WorkerOf(Open());
  fake_.LoseSessions(handle);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(session, handle);
  EXPECT_EQ(adapter_.Logout(session), CKR_OK);
  EXPECT_TRUE(fake_.sessions.contains(session));
}

TEST_F(LostSessionsTest, WorkerThatGotAWorkersHandleIsItsNewOwnersAlone) {
  const CK_SESSION_HANDLE old = Open();
  const CK_SESSION_HANDLE handle = WorkerOf(old);
  fake_.LoseSessions(200);
  const CK_SESSION_HANDLE session = Open();
  fake_.next_session = handle;
  ASSERT_EQ(SignInit(session), CKR_OK);
  ASSERT_TRUE(fake_.sessions.contains(handle));
  adapter_.CloseSession(old);
  EXPECT_EQ(Sign(session), CKR_OK);
}

TEST_F(LostSessionsTest, CallersSessionWhoseHandleAWorkerGotIsGone) {
  const CK_SESSION_HANDLE old = Open();
  fake_.LoseSessions(200);
  const CK_SESSION_HANDLE session = Open();
  fake_.next_session = old;
  ASSERT_EQ(SignInit(session), CKR_OK);
  adapter_.CatchUp();
  EXPECT_EQ(SignInit(old), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(adapter_.CloseSession(old), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(Sign(session), CKR_OK);
}

TEST_F(LostSessionsTest, IdleWorkersMakeRoomForTheCallersSessions) {
  fake_.session_limit = 3;
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(SignInit(session), CKR_OK);
  ASSERT_EQ(Sign(session), CKR_OK);
  const CK_SESSION_HANDLE other = Open();
  ASSERT_EQ(fake_.sessions.size(), 3u) << "with the worker";
  Open();
  EXPECT_EQ(fake_.sessions.size(), 3u);
  CK_SESSION_HANDLE none = 0;
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &none), CKR_SESSION_COUNT);
  EXPECT_EQ(SignInit(session), CKR_OK) << "on the caller's own";
  EXPECT_EQ(Sign(session), CKR_OK);
  EXPECT_EQ(SignInit(other), CKR_OK);
}

TEST_F(LostSessionsTest, OperationGoesOnWhereRoomIsWanted) {
  fake_.session_limit = 3;
  const CK_SESSION_HANDLE busy = Open();
  const CK_SESSION_HANDLE waiting = Open();
  ASSERT_EQ(SignInit(busy), CKR_OK);
  CK_SESSION_HANDLE none = 0;
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &none), CKR_SESSION_COUNT);
  EXPECT_EQ(Sign(busy), CKR_OK);
  ASSERT_EQ(SignInit(waiting), CKR_OK);
  ASSERT_EQ(Sign(waiting, 1), CKR_BUFFER_TOO_SMALL);
  Open();
  EXPECT_EQ(Sign(waiting), CKR_OK) << "its result needs no worker";
}

using SessionsOfTwoAdaptersTest = TwoAdaptersTest;

TEST_F(SessionsOfTwoAdaptersTest, SessionThatTheModuleGaveToTheOtherIsGone) {
  const CK_SESSION_HANDLE session = Open(first_);
  ASSERT_EQ(SignInit(first_, session), CKR_OK);
  const CK_SESSION_HANDLE worker = fake_.sessions.rbegin()->first;
  fake_.LoseSessions(session);
  ASSERT_EQ(Open(second_), session);
  fake_.next_session = worker;
  ASSERT_EQ(Open(second_), worker);
  first_.CatchUp();
  EXPECT_EQ(first_.CloseSession(session), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(first_.CloseAllSessions(7), CKR_OK);
  EXPECT_EQ(first_.Finalize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.sessions.size(), 2u);
  EXPECT_EQ(SignInit(second_, session), CKR_OK);
}

TEST_F(SessionsOfTwoAdaptersTest, FinalisingClosesNoSessionThatGotAWorkersHandle) {
  ASSERT_EQ(SignInit(first_, Open(first_)), CKR_OK);
  const CK_SESSION_HANDLE worker = fake_.sessions.rbegin()->first;
  fake_.LoseSessions(worker);
  ASSERT_EQ(Open(second_), worker);
  first_.CatchUp();
  EXPECT_EQ(first_.Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(fake_.sessions.contains(worker));
}

}  // namespace
}  // namespace kelvrin::adapter
