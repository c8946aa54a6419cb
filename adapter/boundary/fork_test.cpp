// The library in the child of a fork, which nobody has initialised.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "adapter/testing/behaviour_fixture.h"
#include "adapter/testing/loaded_library.h"

namespace kelvrin::adapter {
namespace {

// A child that hangs is ended.
constexpr unsigned kMaxSeconds = 60;

// Runs `body`, which may use the test's macros, in a child; whether that ended well.
template <typename Body>
bool GoesWellInChild(const Body& body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(kMaxSeconds);
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class ForkTest : public BehaviourTest {
 protected:
  // Not even C_Initialize: the module's own state is the parent's.
  void ExpectNothingIsInitialised(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session) {
    CK_SESSION_INFO info = {};
    CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
    module.ForgetCalls();
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, 1), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_FUNCTION_LIST* list = nullptr;
    EXPECT_EQ(p11->C_GetFunctionList(&list), CKR_OK);
    EXPECT_EQ(list, p11);
    EXPECT_EQ(module.Count(), 0U);
  }

  MemoryCard& card = AddCard();
  Extension extension{Adapter()};
};

TEST_F(ForkTest, ChildFindsNothingInitialisedAndTheParentGoesOn) {
  SetUpAndLogIn(extension, card.pin);
  EXPECT_TRUE(
      GoesWellInChild([&] { ExpectNothingIsInitialised(extension.p11, extension.session); }));
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
  extension.Remove();
  EXPECT_FALSE(module.is_initialized);
}

TEST_F(ForkTest, ChildOfAParentThatNeverInitialisedMayInitialise) {
  CK_FUNCTION_LIST* const p11 = LoadLibrary(folder / "libX.dylib");
  EXPECT_TRUE(GoesWellInChild([&] {
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  }));
}

TEST_F(ForkTest, ForkWhileAnotherThreadIsInTheModuleWaitsForNobody) {
  SetUpAndLogIn(extension, card.pin);
  std::atomic<bool> is_signing = false;
  std::atomic<bool> may_go_on = false;
  module.before = [&](std::string_view function) {
    if (function == "C_Sign") {
      is_signing = true;
      is_signing.notify_all();
      may_go_on.wait(false);
    }
    return CK_RV{CKR_OK};
  };
  std::thread signer([&] { EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key))); });
  is_signing.wait(false);
  EXPECT_TRUE(GoesWellInChild([&] {
    CK_SESSION_INFO info = {};
    EXPECT_EQ(extension.p11->C_GetSessionInfo(extension.session, &info),
              CKR_CRYPTOKI_NOT_INITIALIZED);
  }));
  may_go_on = true;
  may_go_on.notify_all();
  signer.join();
}

}  // namespace
}  // namespace kelvrin::adapter
