// Keys that want a login for each operation.
#include <string>
#include <utility>

#include "adapter/operations/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

// A call of C_Login.
struct LoginCall {
  CK_SESSION_HANDLE session;
  CK_USER_TYPE user;
  std::optional<std::string> pin;  // nothing: a null pointer
  bool operator==(const LoginCall&) const = default;
};

class ContextLoginTest : public KeyOperationTest {
 protected:
  ContextLoginTest() {
    Attribute(ec_, CKA_ALWAYS_AUTHENTICATE) = MemoryObject::Flag(true);
    faults::Chain<&MemoryEntries::C_Login>(
        module, [this](auto next, CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin,
                       CK_ULONG size) {
          logins_.push_back(
              {session, user,
               pin == nullptr ? std::nullopt : std::optional(std::string(pin, pin + size))});
          return pin == nullptr ? CK_RV{CKR_OK} : next(session, user, pin, size);
        });
  }
  CK_RV Begin() { return Init(kSign, CKM_ECDSA, ec_); }

  std::vector<LoginCall> logins_;
};

TEST_F(ContextLoginTest, WrongPinIsWipedAndNeverTriedAgain) {
  Keep("1234");
  EXPECT_EQ(Begin(), CKR_PIN_INCORRECT);
  EXPECT_FALSE(pin_.has_pin());
  EXPECT_TRUE(HasNoWorker());
  EXPECT_TRUE(operation_.TakeLogoutRequest());
  EXPECT_FALSE(operation_.TakeLogoutRequest()) << "once";
  EXPECT_EQ(Begin(), CKR_USER_NOT_LOGGED_IN);
  EXPECT_TRUE(operation_.TakeLogoutRequest());
  EXPECT_EQ(module.Count("C_Login"), 1u);
  EXPECT_EQ(card_.tries, 2);
}

TEST_F(ContextLoginTest, EachOperationGetsItsLoginOnTheWorker) {
  Keep("123456");
  EXPECT_FALSE(operation_.TakeLogoutRequest());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Begin(), CKR_OK);
    EXPECT_EQ(Run(kSign, Bytes(32, 1)), CKR_OK);
  }
  const LoginCall login = {noted_.at(0), CKU_CONTEXT_SPECIFIC, "123456"};
  EXPECT_EQ(logins_, (std::vector<LoginCall>{login, login}));
  EXPECT_TRUE(pin_.has_pin());
  EXPECT_FALSE(operation_.TakeLogoutRequest());
}

TEST_F(ContextLoginTest, PinThatIsEnteredAtTheReaderIsAskedForThere) {
  pin_.Keep(nullptr, 0);
  EXPECT_EQ(Begin(), CKR_OK);
  EXPECT_EQ(logins_, (std::vector<LoginCall>{{noted_.at(0), CKU_CONTEXT_SPECIFIC, std::nullopt}}));
}

TEST_F(ContextLoginTest, ModuleThatKnowsNoSuchLoginsIsLeftToItself) {
  Keep("123456");
  for (const CK_RV result : {CKR_USER_TYPE_INVALID, CKR_USER_ALREADY_LOGGED_IN}) {
    module.FailNext("C_Login", result);
    EXPECT_EQ(Begin(), CKR_OK);
    EXPECT_TRUE(pin_.has_pin());
    EXPECT_FALSE(operation_.TakeLogoutRequest());
  }
}

TEST_F(ContextLoginTest, FailedBeginningCostsNoLogin) {
  Keep("123456");
  module.FailNext("C_SignInit", CKR_MECHANISM_INVALID);
  EXPECT_EQ(Begin(), CKR_MECHANISM_INVALID);
  EXPECT_EQ(module.Count("C_Login"), 0u);
  EXPECT_TRUE(pin_.has_pin());
}

TEST_F(ContextLoginTest, OtherKeysOrWithoutTheRuleAnyAreNotLoggedInFor) {
  Keep("123456");
  EXPECT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  rules_.SwitchOff(Rule::kContextLogin);
  EXPECT_EQ(Begin(), CKR_OK);
  EXPECT_EQ(module.Count("C_Login"), 0u);
  EXPECT_FALSE(operation_.TakeLogoutRequest());
}

}  // namespace
}  // namespace kelvrin::adapter
