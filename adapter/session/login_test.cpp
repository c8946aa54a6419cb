// The life of a login and of its PIN.
#include <functional>

#include "adapter/testing/behaviour_fixture.h"
#include "adapter/testing/memory_at.h"

namespace kelvrin::adapter {
namespace {

const std::string kPin = "918273";

// A card whose keys want a login for each operation.
class LoginTest : public BehaviourTest {
 protected:
  LoginTest() {
    module.over.C_Login = [this](CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin,
                                 CK_ULONG size) {
      if (user == CKU_CONTEXT_SPECIFIC) {
        ++context_logins;
        kept_at = pin;
      }
      return module.standard.C_Login(session, user, pin, size);
    };
  }
  static CK_RV Sign(Extension& token) {
    Bytes signature;
    return token.Sign(2, CKM_ECDSA, Bytes(32, 1), &signature);
  }

  MemoryCard& card = AddCard({.pin = kPin}, {.always_authenticate = true});
  Extension extension{Adapter()};
  Extension other{folder / "libX.dylib"};
  int context_logins = 0;
  const CK_BYTE* kept_at = nullptr;
};

TEST_F(LoginTest, PinIsWipedWhenTheLoginIsOver) {
  struct End {
    std::string name;
    std::function<void(Extension&)> happen;
  };
  MemoryCard& other_card = AddCard({.reader = "Other", .serial = "other"});
  other_card.is_present = false;
  CK_TOKEN_INFO info = {};
  CK_ULONG count = 0;
  CK_BYTE wrong = '0';
  const std::vector<End> ends = {
      {"logout", [](Extension& e) { e.p11->C_Logout(e.session); }},
      {"logout that fails",
       [&](Extension& e) {
         module.FailNext("C_Logout", CKR_DEVICE_ERROR);
         EXPECT_EQ(e.p11->C_Logout(e.session), CKR_DEVICE_ERROR);
       }},
      {"last session", [](Extension& e) { e.p11->C_CloseSession(e.session); }},
      {"all sessions", [](Extension& e) { e.p11->C_CloseAllSessions(e.slot); }},
      {"finalisation", [](Extension& e) { e.p11->C_Finalize(nullptr); }},
      {"finalisation that fails",
       [&](Extension& e) {
         module.FailNext("C_Finalize", CKR_DEVICE_ERROR);
         EXPECT_EQ(e.p11->C_Finalize(nullptr), CKR_DEVICE_ERROR);
       }},
      {"failed login",
       [&](Extension& e) {
         module.FailNext("C_Login", CKR_PIN_INCORRECT);
         EXPECT_EQ(e.LogIn("0000"), CKR_PIN_INCORRECT);
       }},
      {"login that nobody can tell the end of",
       [&](Extension& e) {
         module.FailNext("C_Login", CKR_DEVICE_ERROR);
         EXPECT_EQ(e.LogIn(kPin), CKR_DEVICE_ERROR);
       }},
      {"login of the security officer",
       [&](Extension& e) { e.p11->C_Login(e.session, CKU_SO, &wrong, 1); }},
      {"failed login for an operation",
       [&](Extension& e) {
         module.FailNext("C_Login", CKR_PIN_INCORRECT);
         EXPECT_EQ(Sign(e), CKR_PIN_INCORRECT);
       }},
      {"lost card",
       [&](Extension& e) {
         module.Pull(card);
         EXPECT_EQ(Sign(e), CKR_SESSION_HANDLE_INVALID);
       }},
      {"another card in token information",
       [&](Extension& e) {
         module.Pull(card);
         std::swap(card.serial, other_card.serial);
         module.Insert(card);
         EXPECT_EQ(e.p11->C_GetTokenInfo(e.slot, &info), CKR_OK);
         std::swap(card.serial, other_card.serial);
       }},
      {"no card in the slot list",
       [&](Extension& e) {
         module.Pull(card);
         testing::internal::CaptureStderr();
         EXPECT_EQ(e.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
         testing::internal::GetCapturedStderr();
       }},
      {"handle given out again",
       [&](Extension& e) {
         const CK_SESSION_HANDLE inner = module.sessions.begin()->first;
         module.EndSession(inner);
         module.next_session = inner;
         CK_SESSION_HANDLE session = 0;
         EXPECT_EQ(e.p11->C_OpenSession(e.slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
                   CKR_OK);
         EXPECT_NE(session, e.session) << "the adapter's own handles never come again";
       }},
  };
  for (const End& end : ends) {
    Extension token(Adapter("", "lib" + std::to_string(&end - ends.data())));
    SetUpAndLogIn(token, kPin);
    ASSERT_EQ(Sign(token), CKR_OK) << end.name;
    ASSERT_TRUE(MemoryHolds(kept_at, kPin)) << end.name;
    const CK_BYTE* const place = kept_at;
    end.happen(token);
    EXPECT_FALSE(MemoryHolds(place, kPin)) << end.name;
    EXPECT_EQ(card.tries, 3) << end.name;
    module.Insert(card);
    token.Remove();
    module.Heal();
    if (module.is_initialized) module.functions()->C_Finalize(nullptr);
    module.next_session += 10;
  }
}

TEST_F(LoginTest, PinStaysWhileTheLoginLasts) {
  SetUpAndLogIn(extension, kPin);
  ASSERT_EQ(other.SetUp(), CKR_OK);
  EXPECT_EQ(other.LogIn("0000"), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(Sign(extension), CKR_OK);
  EXPECT_EQ(extension.p11->C_CloseSession(extension.session), CKR_OK);
  EXPECT_EQ(Sign(other), CKR_OK) << "a login is the token's";
  EXPECT_TRUE(MemoryHolds(kept_at, kPin));
}

TEST_F(LoginTest, WrongPinForAnOperationIsNeverTriedAgain) {
  SetUpAndLogIn(extension, kPin);
  card.pin = "changed";
  EXPECT_EQ(Sign(extension), CKR_PIN_INCORRECT);
  EXPECT_EQ(module.Count("C_Logout"), 1U) << "so that the user is asked";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Sign(extension), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(card.tries, 2);
  EXPECT_EQ(context_logins, 1);
  EXPECT_EQ(extension.LogIn("changed"), CKR_OK);
  for (int i = 2; i <= 3; ++i) {
    EXPECT_EQ(Sign(extension), CKR_OK);
    EXPECT_EQ(context_logins, i) << "once for each operation";
  }
  module.FailNext("C_SignInit", CKR_MECHANISM_INVALID);
  EXPECT_EQ(Sign(extension), CKR_MECHANISM_INVALID);
  EXPECT_EQ(context_logins, 3) << "none for one that cannot begin";
  EXPECT_EQ(card.tries, 3);
}

// After a login that failed while another holds, the key finds no PIN.
TEST_F(LoginTest, WithoutAPinTheTokenIsLoggedOutSoThatItIsAskedFor) {
  SetUpAndLogIn(extension, kPin);
  ASSERT_EQ(Sign(extension), CKR_OK);
  module.FailNext("C_Login", CKR_PIN_INCORRECT);
  EXPECT_EQ(extension.LogIn("0000"), CKR_PIN_INCORRECT);
  EXPECT_EQ(Sign(extension), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(context_logins, 1);
  EXPECT_EQ(module.Count("C_Logout"), 1U);
  EXPECT_EQ(extension.LogIn(kPin), CKR_OK);
  EXPECT_EQ(Sign(extension), CKR_OK);
}

TEST_F(LoginTest, ModuleWithoutLoginsForOperationsIsNotLoggedOut) {
  SetUpAndLogIn(extension, kPin);
  for (const CK_RV answer : {CKR_USER_TYPE_INVALID, CKR_USER_ALREADY_LOGGED_IN}) {
    module.FailNext("C_Login", answer);
    EXPECT_EQ(Sign(extension), CKR_USER_NOT_LOGGED_IN) << "says the operation itself";
    EXPECT_EQ(Sign(extension), CKR_OK) << "the PIN is still there";
  }
  EXPECT_EQ(module.Count("C_Logout"), 0U);
}

TEST_F(LoginTest, WithoutTheRuleTheCallerLogsInOnHisOperation) {
  Extension bare(Adapter("rules-off = context-login\n", "libY"));
  SetUpAndLogIn(bare, kPin);
  EXPECT_EQ(Sign(bare), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(context_logins, 0);
  CK_OBJECT_HANDLE key = 0;
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  std::string pin = kPin;
  const auto log_in = [&] {
    return bare.p11->C_Login(bare.session, CKU_CONTEXT_SPECIFIC,
                             reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  };
  ASSERT_EQ(bare.FindKey(2, &key), CKR_OK);
  EXPECT_EQ(log_in(), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(bare.p11->C_SignInit(bare.session, &mechanism, key), CKR_OK);
  EXPECT_EQ(log_in(), CKR_OK);
  Bytes digest(32, 1);
  Bytes signature(80);
  CK_ULONG size = signature.size();
  EXPECT_EQ(bare.p11->C_Sign(bare.session, digest.data(), digest.size(), signature.data(), &size),
            CKR_OK);
}

TEST_F(LoginTest, PinThatIsEnteredAtTheReaderIsEnteredThereForEachOperation) {
  int entered = 0;
  module.over.C_Login = [&](CK_SESSION_HANDLE session, CK_USER_TYPE user, const CK_BYTE* pin,
                            CK_ULONG size) -> CK_RV {
    EXPECT_EQ(pin, nullptr);
    EXPECT_EQ(size, 0U);
    ++entered;
    std::string typed = kPin;
    return module.standard.C_Login(session, user, reinterpret_cast<CK_BYTE*>(typed.data()),
                                   typed.size());
  };
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  ASSERT_EQ(extension.p11->C_Login(extension.session, CKU_USER, nullptr, 0), CKR_OK);
  EXPECT_EQ(Sign(extension), CKR_OK);
  EXPECT_EQ(entered, 2);
}

TEST_F(LoginTest, LogoutEndsOperationsAndReachesTheWorker) {
  SetUpAndLogIn(extension, kPin);
  ASSERT_EQ(other.SetUp(), CKR_OK);
  CK_OBJECT_HANDLE key = 0;
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  ASSERT_EQ(other.FindKey(2, &key), CKR_OK);
  ASSERT_EQ(other.p11->C_SignInit(other.session, &mechanism, key), CKR_OK);
  ASSERT_EQ(module.sessions.size(), 3U);
  EXPECT_EQ(extension.p11->C_Logout(extension.session), CKR_OK);
  EXPECT_EQ(module.sessions.size(), 2U);
  CK_ULONG size = 0;
  EXPECT_EQ(other.p11->C_Sign(other.session, nullptr, 0, nullptr, &size),
            CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Sign(other), CKR_USER_NOT_LOGGED_IN);
  module.ForgetCalls();
  other.Remove();
  EXPECT_EQ(module.Count("C_Logout"), 0U) << "nobody is logged in";
}

TEST_F(LoginTest, ClosingTheCallersLastSessionLogsOut) {
  SetUpAndLogIn(extension, kPin);
  ASSERT_EQ(Sign(extension), CKR_OK);
  EXPECT_EQ(extension.p11->C_CloseSession(extension.session), CKR_OK);
  EXPECT_TRUE(module.sessions.empty());
  EXPECT_FALSE(card.is_logged_in);
  EXPECT_EQ(extension.p11->C_CloseSession(extension.session), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(LoginTest, SessionInformationOfAFailedCallIsNotTouched) {
  SetUpAndLogIn(extension, kPin);
  CK_SESSION_INFO info = {};
  info.slotID = 4711;
  module.FailNext("C_GetSessionInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(extension.p11->C_GetSessionInfo(extension.session, &info), CKR_DEVICE_ERROR);
  EXPECT_EQ(info.slotID, 4711U);
  EXPECT_EQ(extension.p11->C_GetSessionInfo(extension.session, &info), CKR_OK);
  EXPECT_EQ(info.slotID, card.slot);
  EXPECT_EQ(info.state, CKS_RW_USER_FUNCTIONS);
}

}  // namespace
}  // namespace kelvrin::adapter
