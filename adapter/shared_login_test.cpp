// The built library, in one copy and in two, over a module whose keys want a login for each
// operation: whose PIN serves them, until when, and where it is never seen.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "adapter/testing/fault_module_fixture.h"
#include "adapter/testing/loaded_library.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_BYTE kEcId = 2;

// A program that uses one copy.
class Program {
 public:
  explicit Program(const std::filesystem::path& library) : p11_(LoadLibrary(library)) {
    EXPECT_EQ(p11_->C_Initialize(nullptr), CKR_OK);
    CK_ULONG count = 1;
    EXPECT_EQ(p11_->C_GetSlotList(CK_TRUE, &slot_, &count), CKR_OK);
    EXPECT_EQ(p11_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                  &session_),
              CKR_OK);
  }
  ~Program() { p11_->C_Finalize(nullptr); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  CK_RV LogIn(std::string pin = std::string(kPin)) {
    return p11_->C_Login(session_, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size());
  }
  bool IsLoggedIn() {
    CK_SESSION_INFO info = {};
    EXPECT_EQ(p11_->C_GetSessionInfo(session_, &info), CKR_OK);
    return info.state == CKS_RW_USER_FUNCTIONS;
  }
  CK_OBJECT_HANDLE Find() {
    CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
    CK_BYTE id = kEcId;
    std::array<CK_ATTRIBUTE, 2> wanted = {
        {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}}};
    CK_OBJECT_HANDLE found = CK_INVALID_HANDLE;
    CK_ULONG count = 0;
    EXPECT_EQ(p11_->C_FindObjectsInit(session_, wanted.data(), wanted.size()), CKR_OK);
    EXPECT_EQ(p11_->C_FindObjects(session_, &found, 1, &count), CKR_OK);
    return found;
  }
  CK_RV Sign() {
    CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
    std::array<CK_BYTE, 32> digest = {};
    std::array<CK_BYTE, 128> signature = {};
    CK_ULONG size = signature.size();
    const CK_RV result = p11_->C_SignInit(session_, &mechanism, Find());
    return result != CKR_OK
               ? result
               : p11_->C_Sign(session_, digest.data(), digest.size(), signature.data(), &size);
  }
  CK_FUNCTION_LIST& p11() { return *p11_; }
  CK_SLOT_ID slot() const { return slot_; }
  CK_SESSION_HANDLE session() const { return session_; }

 private:
  CK_FUNCTION_LIST* p11_;
  CK_SLOT_ID slot_ = 0;
  CK_SESSION_HANDLE session_ = 0;
};

class KeptPinOfACopy : public FaultTest {
 protected:
  KeptPinOfACopy() { control_.fault = Fault::kKeysWantLogin; }
};

TEST_F(KeptPinOfACopy, IsNeverTriedAfterAChangeOfThePin) {
  Program program(Adapter());
  CK_UTF8CHAR text[] = "1111";
  const std::vector<std::pair<const char*, std::function<void()>>> changes = {
      {"C_SetPIN", [&] { program.p11().C_SetPIN(program.session(), text, 4, text, 4); }},
      {"C_InitPIN", [&] { program.p11().C_InitPIN(program.session(), text, 4); }},
      {"C_InitToken", [&] { program.p11().C_InitToken(program.slot(), text, 4, text); }},
  };
  for (const auto& [name, change] : changes) {
    ASSERT_EQ(program.LogIn(), CKR_OK) << name;
    ASSERT_EQ(program.Sign(), CKR_OK) << name;
    change();
    control_.is_pin_changed = true;
    EXPECT_EQ(program.Sign(), CKR_USER_NOT_LOGGED_IN) << name;
    EXPECT_EQ(control_.wrong_pins, 0) << name;
    EXPECT_FALSE(program.IsLoggedIn()) << name << ": the PIN is to be asked for";
    control_.is_pin_changed = false;
  }
}

TEST_F(KeptPinOfACopy, IsAskedForAgainWhenItsLoginFailed) {
  Program program(Adapter());
  ASSERT_EQ(program.LogIn(), CKR_OK);
  control_.is_pin_changed = true;
  EXPECT_EQ(program.Sign(), CKR_PIN_INCORRECT);
  EXPECT_FALSE(program.IsLoggedIn());
  control_.is_pin_changed = false;
  ASSERT_EQ(program.LogIn(), CKR_OK);
  EXPECT_EQ(program.Sign(), CKR_OK);
  EXPECT_EQ(control_.wrong_pins, 1);
}

TEST_F(KeptPinOfACopy, ServesTheOtherCopyUntilEitherLogsOut) {
  Program first(Adapter());
  Program second(Adapter("", "libY"));
  ASSERT_EQ(first.LogIn(), CKR_OK);
  ASSERT_TRUE(second.IsLoggedIn()) << "nobody will ask for its PIN there";
  EXPECT_EQ(second.Sign(), CKR_OK);
  EXPECT_EQ(first.Sign(), CKR_OK);
  EXPECT_EQ(control_.context_logins, 2);
  ASSERT_EQ(second.p11().C_Logout(second.session()), CKR_OK);
  // A login that the copies do not see.
  CK_FUNCTION_LIST* const module = LoadLibrary(Module());
  std::string pin(kPin);
  ASSERT_EQ(module->C_Login(first.session(), CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()),
                            pin.size()),
            CKR_OK);
  EXPECT_EQ(first.Sign(), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(control_.context_logins, 2);
}

TEST_F(KeptPinOfACopy, ServesTheOtherCopyAfterTheEndOfTheFirst) {
  const std::vector<std::function<void(Program&)>> ends = {
      [](Program& program) { program.p11().C_CloseSession(program.session()); },
      [](Program& program) { program.p11().C_CloseAllSessions(program.slot()); },
      [](Program& program) { program.p11().C_Finalize(nullptr); },
  };
  const auto library = Adapter();
  const auto other = Adapter("", "libY");
  for (std::size_t i = 0; i < ends.size(); ++i) {
    for (const bool is_given_to_first : {true, false}) {
      Program first(library);
      Program second(other);
      ASSERT_EQ((is_given_to_first ? first : second).LogIn(), CKR_OK);
      ends[i](first);
      EXPECT_EQ(second.Sign(), CKR_OK) << i;
      EXPECT_EQ(second.Sign(), CKR_OK) << i;
      EXPECT_TRUE(second.IsLoggedIn());
    }
  }
}

TEST_F(KeptPinOfACopy, WhatOneCopyDoesToObjectsMakesTheOtherSearchAgain) {
  Program first(Adapter());
  Program second(Adapter("", "libY"));
  ASSERT_EQ(first.LogIn(), CKR_OK);
  const auto searches = [&] {
    control_.searches = 0;
    EXPECT_NE(second.Find(), CK_INVALID_HANDLE);
    return control_.searches;
  };
  searches();
  EXPECT_EQ(searches(), 0);
  CK_OBJECT_HANDLE made = 0;
  first.p11().C_CreateObject(first.session(), nullptr, 0, &made);
  EXPECT_EQ(searches(), 1);
}

// Of all that may be written on the way.
TEST_F(KeptPinOfACopy, IsNeverWritten) {
  const auto library = Adapter();
  CK_FUNCTION_LIST* const without_token = LoadLibrary(Adapter("token-label = None such\n", "libY"));
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  Road(library).Walk();
  {
    Program program(library);
    EXPECT_EQ(program.LogIn("918273"), CKR_PIN_INCORRECT);
    EXPECT_EQ(program.LogIn(), CKR_OK);
    control_.is_pin_changed = true;
    EXPECT_NE(program.Sign(), CKR_OK);
    EXPECT_NE(program.Sign(), CKR_OK);
    program.p11().C_Logout(program.session());
  }
  CK_ULONG count = 0;
  EXPECT_EQ(without_token->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(without_token->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  EXPECT_EQ(without_token->C_Finalize(nullptr), CKR_OK);
  const std::string written =
      testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout();
  EXPECT_NE(written.find("token-label"), std::string::npos) << "something was";
  for (const std::string& pin : {std::string(kPin), std::string("918273")}) {
    EXPECT_EQ(written.find(pin), std::string::npos) << written;
  }
}

}  // namespace
}  // namespace kelvrin::adapter
