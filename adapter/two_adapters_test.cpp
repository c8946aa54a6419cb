// What two adapters over one module share: the login with its PIN, and the objects.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "adapter/testing/memory_at.h"
#include "adapter/testing/two_adapters_fixture.h"

namespace kelvrin::adapter {
namespace {

const std::string kPin = "918273";

class SharedLoginTest : public TwoAdaptersTest {
 protected:
  SharedLoginTest() {
    fake_.objects[1][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
    EXPECT_EQ(LogIn(first_, one_, kPin), CKR_OK);
  }

  static void CloseOperation(Adapter& adapter, CK_SESSION_HANDLE session) {
    adapter.WithOperation(session, [](KeyOperation& operation) -> CK_RV {
      operation.Close();
      return CKR_OK;
    });
  }

  CK_SESSION_HANDLE one_ = Open(first_);
  CK_SESSION_HANDLE other_ = Open(second_);
};

TEST_F(SharedLoginTest, PinThatOneWasGivenServesTheKeysOfBoth) {
  EXPECT_EQ(SignInit(second_, other_), CKR_OK);
  EXPECT_EQ(fake_.login_user, CKU_CONTEXT_SPECIFIC);
  EXPECT_EQ(fake_.login_pin, kPin);
  EXPECT_EQ(SignInit(first_, one_), CKR_OK);
  EXPECT_EQ(fake_.login_pin, kPin);
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(SharedLoginTest, PinIsOverwrittenAtOnceWhicheverEndsTheLogin) {
  const std::vector<std::pair<const char*, std::function<void()>>> ends = {
      {"logout", [&] { second_.Logout(other_); }},
      {"new PIN", [&] { second_.WipePinOf(other_); }},
      {"new token", [&] { second_.WipePinIn(7); }},
      {"failed login for an operation",
       [&] {
         fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
         EXPECT_EQ(SignInit(second_, other_), CKR_PIN_INCORRECT);
       }},
      {"lost session",
       [&] {
         fake_.LoseSessions(one_);
         ASSERT_EQ(Open(second_), one_);
         one_ = Open(first_);
         other_ = Open(second_);
       }},
  };
  for (const auto& [name, end] : ends) {
    ASSERT_EQ(LogIn(first_, one_, kPin), CKR_OK);
    ASSERT_EQ(SignInit(second_, other_), CKR_OK) << name;
    const CK_BYTE* const place = fake_.login_memory;
    ASSERT_TRUE(MemoryHolds(place, kPin)) << name;
    CloseOperation(second_, other_);
    end();
    EXPECT_FALSE(MemoryHolds(place, kPin)) << name;
    EXPECT_EQ(SignInit(first_, one_), CKR_USER_NOT_LOGGED_IN) << name;
  }
}

// What one copy does to its own sessions, while the other has one.
TEST_F(SharedLoginTest, PinServesWhoeverStillHasASession) {
  const std::vector<std::pair<const char*, std::function<void(Adapter&, CK_SESSION_HANDLE)>>> ends =
      {
          {"session", [](Adapter& adapter, CK_SESSION_HANDLE own) { adapter.CloseSession(own); }},
          {"all", [](Adapter& adapter, CK_SESSION_HANDLE) { adapter.CloseAllSessions(7); }},
          {"end", [](Adapter& adapter, CK_SESSION_HANDLE) { adapter.Finalize(nullptr); }},
      };
  for (const auto& [name, end] : ends) {
    Adapter third(open_, &uses_);
    ASSERT_EQ(third.Initialize(nullptr), CKR_OK);
    const CK_SESSION_HANDLE session = Open(third);
    ASSERT_EQ(LogIn(third, session, kPin), CKR_OK) << name;
    end(third, session);
    EXPECT_EQ(SignInit(second_, other_), CKR_OK) << name << ": its PIN was another's";
    EXPECT_EQ(fake_.login_pin, kPin) << name;
    CloseOperation(second_, other_);
    third.Finalize(nullptr);
  }
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(SharedLoginTest, PinGoesWithTheLastSessionWhosesoever) {
  ASSERT_EQ(SignInit(second_, other_), CKR_OK);
  const CK_BYTE* const place = fake_.login_memory;
  ASSERT_EQ(first_.CloseSession(one_), CKR_OK);
  EXPECT_TRUE(MemoryHolds(place, kPin));
  second_.CatchUp();
  ASSERT_EQ(second_.CloseSession(other_), CKR_OK);
  EXPECT_FALSE(MemoryHolds(place, kPin)) << "both adapters are there still";
}

TEST_F(SharedLoginTest, LateNoticeOfALostSessionLeavesThePinOfALaterLogin) {
  fake_.LoseSessions(one_);
  const CK_SESSION_HANDLE session = Open(second_);
  ASSERT_EQ(session, one_);
  ASSERT_EQ(LogIn(second_, session, kPin), CKR_OK);
  ASSERT_EQ(SignInit(second_, session), CKR_OK);
  CloseOperation(second_, session);
  EXPECT_EQ(SignInit(first_, one_), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(SignInit(second_, session), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(SharedLoginTest, ModuleThatIsGoneHasNoLoginEvenWhereItDoesNotComeUpAgain) {
  ASSERT_EQ(SignInit(second_, other_), CKR_OK);
  const CK_BYTE* const place = fake_.login_memory;
  fake_.initialized = false;
  fake_.FailNext("C_Initialize", CKR_DEVICE_ERROR);
  ASSERT_EQ(first_.Initialize(nullptr), CKR_DEVICE_ERROR);
  EXPECT_FALSE(MemoryHolds(place, kPin));
}

TEST_F(SharedLoginTest, ModuleThatIsBroughtUpAnewHasNoLogin) {
  ASSERT_EQ(SignInit(second_, other_), CKR_OK);
  const CK_BYTE* const place = fake_.login_memory;
  fake_.initialized = false;
  fake_.sessions.clear();
  Adapter third(open_, &uses_);
  ASSERT_EQ(third.Initialize(nullptr), CKR_OK);
  EXPECT_FALSE(MemoryHolds(place, kPin)) << "those who had it need not be called for that";
  EXPECT_EQ(SignInit(third, Open(third)), CKR_USER_NOT_LOGGED_IN);
}

using SharedObjectsTest = TwoAdaptersTest;

TEST_F(SharedObjectsTest, WhatOneMayHaveChangedTheOtherSearchesForAgain) {
  CK_SESSION_HANDLE one = Open(first_);
  const CK_SESSION_HANDLE other = Open(second_);
  CK_SLOT_ID slot = 0;
  const std::vector<std::pair<const char*, std::function<void()>>> triggers = {
      {"login", [&] { LogIn(first_, one, kPin); }},
      {"logout", [&] { first_.Logout(one); }},
      {"destruction", [&] { first_.DestroyObject(one, 99); }},
      {"hook of the forwarded calls", [&] { first_.ForgetObjects(); }},
      {"slot event", [&] { first_.PollSlotEvent(&slot); }},
      {"closed session",
       [&] {
         first_.CloseSession(one);
         one = Open(first_);
       }},
      {"all sessions",
       [&] {
         first_.CloseAllSessions(7);
         one = Open(first_);
       }},
      {"lost session",
       [&] {
         fake_.next_session = one;
         one = Open(first_);
         fake_.next_session = 500;
       }},
      {"finalisation",
       [&] {
         first_.Finalize(nullptr);
         first_.Initialize(nullptr);
         one = Open(first_);
       }},
  };
  Searches(second_, other);
  for (const auto& [name, trigger] : triggers) {
    EXPECT_EQ(Searches(second_, other), 0u) << "before " << name;
    trigger();
    EXPECT_EQ(Searches(second_, other), 1u) << "after " << name;
  }
}

TEST_F(SharedObjectsTest, NobodyForgetsForNothing) {
  const CK_SESSION_HANDLE one = Open(first_);
  const CK_SESSION_HANDLE other = Open(second_);
  Searches(first_, one);
  Searches(second_, other);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(SignInit(first_, one), i == 0 ? CKR_OK : CKR_OPERATION_ACTIVE);
    EXPECT_EQ(Searches(first_, one), 0u);
    EXPECT_EQ(Searches(second_, other), 0u);
  }
}

}  // namespace
}  // namespace kelvrin::adapter
