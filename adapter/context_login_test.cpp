#include "adapter/context_login.h"

#include <gtest/gtest.h>

#include <string>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

class ContextLoginTest : public testing::Test {
 protected:
  void Keep(const std::string& pin) {
    login_.Keep(reinterpret_cast<const CK_BYTE*>(pin.data()), pin.size());
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  ContextLogin login_{functions_, 7};
};

TEST_F(ContextLoginTest, WithoutALoginThereIsNoPinAndTheTokenIsToBeLoggedOut) {
  EXPECT_FALSE(login_.has_pin());
  EXPECT_FALSE(login_.TakeLogoutRequest());
  EXPECT_EQ(login_.LogIn(5), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(fake_.Calls("C_Login"), 0u);
  EXPECT_TRUE(login_.TakeLogoutRequest());
  EXPECT_FALSE(login_.TakeLogoutRequest());
}

TEST_F(ContextLoginTest, WrongPinIsNeverTriedAgain) {
  Keep("1234");
  fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
  EXPECT_EQ(login_.LogIn(5), CKR_PIN_INCORRECT);
  EXPECT_FALSE(login_.has_pin());
  EXPECT_TRUE(login_.TakeLogoutRequest());
  EXPECT_EQ(login_.LogIn(5), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(fake_.Calls("C_Login"), 1u);
}

TEST_F(ContextLoginTest, ModuleThatKnowsNoSuchLoginsIsLeftToItself) {
  Keep("1234");
  for (const CK_RV result : {CKR_USER_TYPE_INVALID, CKR_USER_ALREADY_LOGGED_IN}) {
    fake_.FailNext("C_Login", result);
    EXPECT_EQ(login_.LogIn(5), CKR_OK);
    EXPECT_TRUE(login_.has_pin());
    EXPECT_FALSE(login_.TakeLogoutRequest());
  }
}

TEST_F(ContextLoginTest, PinIsNotTriedOnAnotherCard) {
  Keep("1234");
  fake_.slots[0].serial = "0002";
  EXPECT_EQ(login_.LogIn(5), CKR_USER_NOT_LOGGED_IN);
  EXPECT_FALSE(login_.has_pin());
  EXPECT_EQ(fake_.Calls("C_Login"), 0u);
}

TEST_F(ContextLoginTest, LastTryOfAPinIsNeverTaken) {
  for (const CK_FLAGS flag : {CKF_USER_PIN_FINAL_TRY, CKF_USER_PIN_LOCKED}) {
    fake_.slots[0].token_flags = CKF_TOKEN_INITIALIZED;
    Keep("1234");
    fake_.slots[0].token_flags |= flag;
    EXPECT_EQ(login_.LogIn(5), CKR_USER_NOT_LOGGED_IN);
    EXPECT_FALSE(login_.has_pin());
  }
  EXPECT_EQ(fake_.Calls("C_Login"), 0u);
}

TEST_F(ContextLoginTest, PinOfATokenThatDoesNotTellWhoItIsIsNotKept) {
  fake_.FailNext("C_GetTokenInfo", CKR_DEVICE_ERROR);
  Keep("1234");
  EXPECT_FALSE(login_.has_pin());
}

TEST_F(ContextLoginTest, PinServesEveryOperationUntilItIsWiped) {
  Keep("1234");
  for (CK_SESSION_HANDLE session = 5; session < 8; ++session) {
    EXPECT_EQ(login_.LogIn(session), CKR_OK);
    EXPECT_EQ(fake_.login_session, session);
    EXPECT_EQ(fake_.login_user, CKU_CONTEXT_SPECIFIC);
    EXPECT_EQ(fake_.login_pin, "1234");
  }
  login_.Wipe();
  EXPECT_FALSE(login_.has_pin());
}

TEST_F(ContextLoginTest, PinThatIsEnteredAtTheReaderIsAskedForThere) {
  login_.Keep(nullptr, 0);
  EXPECT_TRUE(login_.has_pin());
  EXPECT_EQ(login_.LogIn(5), CKR_OK);
  EXPECT_FALSE(fake_.login_pin);
}

}  // namespace
}  // namespace kelvrin::adapter
