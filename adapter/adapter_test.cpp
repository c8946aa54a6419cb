#include "adapter/adapter.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <utility>
#include <vector>

#include "adapter/testing/adapter_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(AdapterTest, SessionsThatWereNotOpenedHereAreUnknown) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(SignInit(session), CKR_OK);  // opens a worker
  ASSERT_EQ(fake_.sessions.size(), 2u);
  const CK_SESSION_HANDLE worker = fake_.sessions.rbegin()->first;
  EXPECT_EQ(adapter_.CloseSession(worker), CKR_SESSION_HANDLE_INVALID);
  const auto forwarded = adapter_.ForwardForSession(worker, [](const CK_FUNCTION_LIST&) -> CK_RV {
    ADD_FAILURE() << "reached the module";
    return CKR_OK;
  });
  EXPECT_EQ(forwarded, CKR_SESSION_HANDLE_INVALID);
}

TEST_F(AdapterTest, SessionOpensOnTheShownSlotOnly) {
  CK_SESSION_HANDLE session = 55;
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, nullptr),
            CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(adapter_.OpenSession(8, kAdapterFlags, nullptr, nullptr, &session),
            CKR_SLOT_ID_INVALID);
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  fake_.FailNext("C_OpenSession", CKR_SESSION_COUNT);
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session), CKR_SESSION_COUNT);
  fake_.next_session = CK_INVALID_HANDLE;
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session), CKR_DEVICE_ERROR);
  EXPECT_EQ(session, 55u);
}

TEST_F(AdapterTest, ClosingASessionClosesItsWorkerFirst) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(adapter_.CloseSession(session), CKR_OK);
  EXPECT_TRUE(fake_.sessions.empty());
  EXPECT_EQ(adapter_.CloseSession(session), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(AdapterTest, ClosingAllSessionsForgetsThem) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE first = Open();
  const CK_SESSION_HANDLE second = Open();
  ASSERT_EQ(SignInit(second), CKR_OK);
  EXPECT_EQ(adapter_.CloseAllSessions(8), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(adapter_.CloseAllSessions(7), CKR_OK);
  EXPECT_TRUE(fake_.sessions.empty());
  EXPECT_EQ(SignInit(first), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(SignInit(second), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(AdapterTest, TokenInfoDoesNotCountWorkers) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  Open();
  ASSERT_EQ(SignInit(Open()), CKR_OK);
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(adapter_.GetTokenInfo(7, &info), CKR_OK);
  EXPECT_EQ(info.ulSessionCount, 2u);
  EXPECT_EQ(info.ulRwSessionCount, 2u);
}

TEST_F(AdapterTest, LoginForOneOperationGoesToItsSession) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  EXPECT_EQ(adapter_.Login(session, CKU_USER, nullptr, 0), CKR_OK);
  EXPECT_EQ(fake_.login_session, session);
  ASSERT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(adapter_.Login(session, CKU_CONTEXT_SPECIFIC, nullptr, 0), CKR_OK);
  EXPECT_NE(fake_.login_session, session);
  fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
  EXPECT_EQ(adapter_.Login(session, CKU_USER, nullptr, 0), CKR_PIN_INCORRECT);
}

TEST_F(AdapterTest, LogoutEndsOperations) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(adapter_.Logout(session), CKR_OK);
  EXPECT_EQ(fake_.sessions.size(), 1u);
}

TEST_F(AdapterTest, FindNeedsASearchAndAPlaceForItsResults) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  std::array<CK_OBJECT_HANDLE, 10> found = {};
  CK_ULONG count = 0;
  EXPECT_EQ(adapter_.FindObjects(session, found.data(), 10, &count), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(adapter_.FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(adapter_.FindObjectsInit(session, nullptr, 1), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.FindObjectsInit(session, nullptr, 0), CKR_OK);
  EXPECT_EQ(adapter_.FindObjects(session, found.data(), 10, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.FindObjects(session, nullptr, 10, &count), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.FindObjects(session, found.data(), 10, &count), CKR_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(adapter_.FindObjectsFinal(session), CKR_OK);
}

TEST_F(AdapterTest, FailedSearchTakesTheOldResultsAway) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(adapter_.FindObjectsInit(session, nullptr, 0), CKR_OK);
  fake_.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
  EXPECT_EQ(adapter_.FindObjectsInit(session, nullptr, 0), CKR_DEVICE_ERROR);
  CK_ULONG count = 0;
  EXPECT_EQ(adapter_.FindObjects(session, nullptr, 0, &count), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(AdapterTest, SearchesLeaveSigningAndFurtherSearchesFree) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_OBJECT_HANDLE object = fake_.Add({});
  const CK_SESSION_HANDLE session = Open();
  std::array<CK_OBJECT_HANDLE, 10> found = {};
  CK_ULONG count = 0;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(adapter_.FindObjectsInit(session, nullptr, 0), CKR_OK);
    ASSERT_EQ(adapter_.FindObjects(session, found.data(), 10, &count), CKR_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(found[0], object);
  }
  EXPECT_EQ(SignInit(session), CKR_OK);
}

TEST_F(AdapterTest, PreviousDerivedObjectGoesBeforeTheNextComes) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  const CK_OBJECT_HANDLE first = Derive(session);
  EXPECT_TRUE(fake_.objects.contains(first));
  const CK_OBJECT_HANDLE second = Derive(session);
  EXPECT_FALSE(fake_.objects.contains(first));
  EXPECT_TRUE(fake_.objects.contains(second));
  for (int i = 0; i < 100; ++i) Derive(session);
  EXPECT_EQ(fake_.objects.size(), 1u);
}

TEST_F(AdapterTest, ObjectsDerivedInAnotherSessionOrWithATemplateStay) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  const CK_OBJECT_HANDLE other = Derive(Open());
  CK_BBOOL no = CK_FALSE;
  CK_ATTRIBUTE attribute = {CKA_TOKEN, &no, sizeof(no)};
  CK_MECHANISM mechanism = {CKM_DH_PKCS_DERIVE, nullptr, 0};
  CK_OBJECT_HANDLE own = 0;
  ASSERT_EQ(adapter_.DeriveKey(session, &mechanism, 2, &attribute, 1, &own), CKR_OK);
  EXPECT_EQ(fake_.derive_template, std::vector<CK_ATTRIBUTE_TYPE>{CKA_TOKEN});
  Derive(session);
  EXPECT_TRUE(fake_.objects.contains(other));
  EXPECT_TRUE(fake_.objects.contains(own));
}

TEST_F(AdapterTest, ObjectThatTheCallerDestroyedOrLostAtLogoutIsNotDestroyedAgain) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(adapter_.DestroyObject(session, Derive(session)), CKR_OK);
  Derive(session);
  EXPECT_EQ(fake_.Calls("C_DestroyObject"), 1u);
  ASSERT_EQ(adapter_.Logout(session), CKR_OK);
  Derive(session);
  EXPECT_EQ(fake_.Calls("C_DestroyObject"), 1u);
}

TEST_F(AdapterTest, DeriveRefusesMissingArguments) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  CK_MECHANISM mechanism = {CKM_DH_PKCS_DERIVE, nullptr, 0};
  CK_OBJECT_HANDLE key = 5;
  EXPECT_EQ(adapter_.DeriveKey(session, nullptr, 2, nullptr, 0, &key), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.DeriveKey(session, &mechanism, 2, nullptr, 0, nullptr), CKR_ARGUMENTS_BAD);
  fake_.FailNext("C_DeriveKey", CKR_DEVICE_ERROR);
  EXPECT_EQ(adapter_.DeriveKey(session, &mechanism, 2, nullptr, 0, &key), CKR_DEVICE_ERROR);
  EXPECT_EQ(key, 5u);
}

TEST_F(AdapterTest, SlotEventsOfHiddenSlotsAreNone) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  CK_SLOT_ID slot = 99;
  EXPECT_EQ(adapter_.PollSlotEvent(nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_OK);
  EXPECT_EQ(slot, 7u);
  fake_.slots.push_back({.id = 8});
  slot = 99;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_NO_EVENT);
  EXPECT_EQ(slot, 99u);
  fake_.FailNext("C_WaitForSlotEvent", CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(AdapterTest, CardThatComesIsReportedWhereNoneWas) {
  fake_.slots[0].token_flags = 0;
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  testing::internal::CaptureStderr();
  CK_SLOT_ID slot = 99;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_NO_EVENT);
  testing::internal::GetCapturedStderr();
  fake_.slots[0].token_flags = CKF_TOKEN_INITIALIZED;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_OK);
  EXPECT_EQ(slot, 7u);
  Open();
}

TEST_F(AdapterTest, CardThatMovesToAnotherReaderIsReportedThere) {
  fake_.slots.push_back({.id = 8, .token_flags = 0});
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  CK_SLOT_ID slot = 99;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_NO_EVENT);
  fake_.slots[0].token_flags = 0;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_NO_EVENT) << "of a token that nobody wants";
  fake_.slots[1].token_flags = CKF_TOKEN_INITIALIZED;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_OK);
  EXPECT_EQ(slot, 8u);
}

// What may have changed the token's objects, or who may use them, makes the adapter search again.
TEST_F(AdapterTest, WhatMayChangeTheObjectsIsSearchedForAgain) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  fake_.Add({{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {1}}});
  CK_SESSION_HANDLE session = Open();
  CK_SLOT_ID slot = 0;
  const auto searches = [&] {
    CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
    CK_BYTE id = 1;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}};
    const std::size_t before = fake_.Calls("C_FindObjectsInit");
    EXPECT_EQ(adapter_.FindObjectsInit(session, wanted, 2), CKR_OK);
    return fake_.Calls("C_FindObjectsInit") - before;
  };
  const std::vector<std::pair<const char*, std::function<void()>>> triggers = {
      {"login", [&] { adapter_.Login(session, CKU_USER, nullptr, 0); }},
      {"logout", [&] { adapter_.Logout(session); }},
      {"destruction", [&] { adapter_.DestroyObject(session, 99); }},
      {"slot event", [&] { adapter_.PollSlotEvent(&slot); }},
      {"hook of the forwarded calls", [&] { adapter_.ForgetObjects(); }},
      {"last session",
       [&] {
         adapter_.CloseSession(session);
         session = Open();
       }},
      {"all sessions",
       [&] {
         adapter_.CloseAllSessions(7);
         session = Open();
       }},
      {"initialisation",
       [&] {
         adapter_.Finalize(nullptr);
         adapter_.Initialize(nullptr);
         session = Open();
       }},
  };
  searches();
  for (const auto& [name, trigger] : triggers) {
    EXPECT_EQ(searches(), 0u) << "before " << name;
    trigger();
    EXPECT_EQ(searches(), 1u) << "after " << name;
  }
}

}  // namespace
}  // namespace kelvrin::adapter
