// How long the adapter keeps a PIN, and what becomes of keys that want it when it is gone.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "adapter/testing/adapter_fixture.h"
#include "adapter/testing/memory_at.h"

namespace kelvrin::adapter {
namespace {

const std::string kPin = "918273";

class KeptLoginTest : public AdapterTest {
 protected:
  KeptLoginTest() {
    fake_.objects[1][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  }

  CK_RV LogIn(CK_SESSION_HANDLE session) {
    std::string pin = kPin;
    return adapter_.Login(session, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  }
  // Where the adapter keeps the PIN.
  const CK_BYTE* KeptAt(CK_SESSION_HANDLE session) {
    fake_.login_memory = nullptr;
    EXPECT_EQ(SignInit(session), CKR_OK);
    EXPECT_EQ(fake_.login_user, CKU_CONTEXT_SPECIFIC);
    adapter_.WithOperation(session, [](KeyOperation& operation) -> CK_RV {
      operation.Close();
      return CKR_OK;
    });
    return fake_.login_memory;
  }
};

TEST_F(KeptLoginTest, PinIsOverwrittenWhenTheLoginIsOver) {
  CK_SESSION_HANDLE session = 0;
  CK_SLOT_ID slot = 0;
  const std::vector<std::pair<const char*, std::function<void()>>> ends = {
      {"logout", [&] { adapter_.Logout(session); }},
      {"logout that fails",
       [&] {
         fake_.FailNext("C_Logout", CKR_DEVICE_ERROR);
         adapter_.Logout(session);
       }},
      {"last session", [&] { adapter_.CloseSession(session); }},
      {"all sessions", [&] { adapter_.CloseAllSessions(7); }},
      {"finalisation", [&] { adapter_.Finalize(nullptr); }},
      {"finalisation that fails",
       [&] {
         fake_.FailNext("C_Finalize", CKR_DEVICE_ERROR);
         adapter_.Finalize(nullptr);
       }},
      {"failed login",
       [&] {
         fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
         EXPECT_EQ(LogIn(session), CKR_PIN_INCORRECT);
       }},
      {"login that nobody can tell the end of",
       [&] {
         fake_.FailNext("C_Login", CKR_DEVICE_ERROR);
         EXPECT_EQ(LogIn(session), CKR_DEVICE_ERROR);
       }},
      {"login of the security officer", [&] { adapter_.Login(session, CKU_SO, nullptr, 0); }},
      {"failed login for an operation",
       [&] {
         fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
         EXPECT_EQ(SignInit(session), CKR_PIN_INCORRECT);
       }},
      {"operation on another card",
       [&] {
         fake_.slots[0].serial += "1";
         EXPECT_EQ(SignInit(session), CKR_USER_NOT_LOGGED_IN);
       }},
      {"new PIN", [&] { adapter_.WipePinOf(session); }},
      {"new token", [&] { adapter_.WipePinIn(7); }},
      {"slot event", [&] { adapter_.PollSlotEvent(&slot); }},
      {"session that the module has lost",
       [&] {
         fake_.LoseSessions(session);
         Open();
       }},
      {"session that the module has lost, which a worker shows",
       [&] {
         fake_.LoseSessions(200);
         const CK_SESSION_HANDLE later = Open();
         fake_.next_session = session;
         SignInit(later);
       }},
  };
  for (const auto& [name, end] : ends) {
    session = Open();
    ASSERT_EQ(LogIn(session), CKR_OK) << name;
    const CK_BYTE* const place = KeptAt(session);
    ASSERT_TRUE(MemoryHolds(place, kPin)) << name;
    end();
    EXPECT_FALSE(MemoryHolds(place, kPin)) << name;
    adapter_.Finalize(nullptr);
    ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  }
}

TEST_F(KeptLoginTest, PinStaysWhileTheLoginLasts) {
  const CK_SESSION_HANDLE session = Open();
  const CK_SESSION_HANDLE other = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  const CK_BYTE* const place = KeptAt(session);
  fake_.FailNext("C_Login", CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(LogIn(other), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(adapter_.CloseSession(session), CKR_OK);
  adapter_.WipePinIn(8);
  adapter_.WipePinOf(session);
  adapter_.ForgetObjects();
  EXPECT_EQ(KeptAt(other), place);
  EXPECT_TRUE(MemoryHolds(place, kPin));
}

TEST_F(KeptLoginTest, PinStaysWhenALoginIsRefusedUnseen) {
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  for (const CK_RV refusal :
       {CKR_USER_ALREADY_LOGGED_IN, CKR_USER_ANOTHER_ALREADY_LOGGED_IN, CKR_USER_TOO_MANY_TYPES,
        CKR_USER_TYPE_INVALID, CKR_SESSION_READ_ONLY_EXISTS, CKR_ARGUMENTS_BAD}) {
    fake_.FailNext("C_Login", refusal);
    EXPECT_EQ(adapter_.Login(session, CKU_SO, nullptr, 0), refusal);
    EXPECT_TRUE(MemoryHolds(KeptAt(session), kPin)) << refusal;
  }
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(KeptLoginTest, PinOfALaterLoginStaysWhenAHandleFromBeforeComesBack) {
  const CK_SESSION_HANDLE old = Open();
  const CK_SESSION_HANDLE older = Open();
  ASSERT_EQ(LogIn(old), CKR_OK);
  fake_.LoseSessions(200);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  fake_.next_session = old;
  EXPECT_TRUE(MemoryHolds(KeptAt(session), kPin)) << "as a worker";
  fake_.next_session = older;
  EXPECT_EQ(Open(), older);
  EXPECT_TRUE(MemoryHolds(KeptAt(session), kPin)) << "as a caller's session";
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(KeptLoginTest, WithoutAPinTheTokenIsLoggedOutSoThatItIsAskedFor) {
  const CK_SESSION_HANDLE session = Open();
  const CK_SESSION_HANDLE other = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  adapter_.WipePinIn(7);
  fake_.objects[2] = {};
  CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
  ASSERT_EQ(adapter_.WithOperation(other,
                                   [&](KeyOperation& operation) {
                                     return operation.Init(OperationKind::kSign, &mechanism, 2);
                                   }),
            CKR_OK);
  EXPECT_EQ(SignInit(session), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(fake_.Calls("C_Logout"), 1u);
  EXPECT_EQ(fake_.sessions.size(), 2u) << "as with every logout the operations are over";
  EXPECT_EQ(fake_.Calls("C_Login"), 1u);
  ASSERT_EQ(LogIn(session), CKR_OK);
  EXPECT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Logout"), 1u);
}

TEST_F(KeptLoginTest, AfterAFailedLoginForAnOperationTheTokenIsLoggedOut) {
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  fake_.FailNext("C_Login", CKR_FUNCTION_FAILED);
  EXPECT_EQ(SignInit(session), CKR_FUNCTION_FAILED);
  EXPECT_EQ(fake_.Calls("C_Logout"), 1u);
  ASSERT_EQ(LogIn(session), CKR_OK);
  EXPECT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Logout"), 1u);
}

TEST_F(KeptLoginTest, KeysThatWantNoLoginOfTheirOwnLogNobodyOut) {
  fake_.objects[1][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(false);
  EXPECT_EQ(SignInit(Open()), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

TEST_F(KeptLoginTest, WithoutTheRuleTheCallerLogsInHimself) {
  adapter_.Finalize(nullptr);
  config_.rules.SwitchOff(Rule::kContextLogin);
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  ASSERT_EQ(LogIn(session), CKR_OK);
  EXPECT_EQ(SignInit(session), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Login"), 1u);
  EXPECT_EQ(fake_.Calls("C_Logout"), 0u);
}

}  // namespace
}  // namespace kelvrin::adapter
