// How the module behind is brought up and down.
#include "adapter/testing/behaviour_fixture.h"
#include "p11/bringup.h"
#include "tests/module/faults.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class InitialisationTest : public BehaviourTest {
 protected:
  CK_RV SetUpAndLogIn() {
    const CK_RV result = extension.SetUp();
    return result == CKR_OK ? extension.LogIn(card.pin) : result;
  }

  MemoryCard& card = AddCard();
  Extension extension{Adapter()};
};

TEST_F(InitialisationTest, ModuleIsToldNothingOrTheReservedTextAlone) {
  EXPECT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_FALSE(module.initialize_arguments);
  extension.Remove();
  module.ForgetCalls();
  Extension other(Adapter("reserved = where='here'\n", "libY"));
  EXPECT_EQ(other.BringUp(), CKR_OK);
  ASSERT_TRUE(module.initialize_arguments);
  EXPECT_EQ(module.reserved, "where='here'");
  EXPECT_EQ(module.initialize_arguments->flags, 0U);
  EXPECT_EQ(module.Count("C_Initialize"), 1U);
}

TEST_F(InitialisationTest, LocksAreOfferedOnceAndOnlyWhenAskedFor) {
  for (const CK_RV refusal : {CKR_ARGUMENTS_BAD, CKR_CANT_LOCK, CKR_NEED_TO_CREATE_THREADS}) {
    module.Reset();
    AddCard();
    faults::WantsLocks(module, refusal);
    Extension one(Adapter("reserved = r\n", "lib" + std::to_string(refusal)));
    EXPECT_EQ(one.BringUp(), CKR_OK);
    EXPECT_EQ(module.Count("C_Initialize"), 2U);
    EXPECT_EQ(module.initialize_arguments->flags, CK_FLAGS{CKF_OS_LOCKING_OK});
    EXPECT_EQ(module.reserved, "r");
  }
}

TEST_F(InitialisationTest, RefusalIsHandedOn) {
  module.FailNext("C_Initialize", CKR_DEVICE_ERROR);
  EXPECT_EQ(extension.BringUp(), CKR_DEVICE_ERROR);
  EXPECT_EQ(module.Count("C_Initialize"), 1U);
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  module.FailNext("C_Initialize", CKR_CANT_LOCK);
  module.FailNext("C_Initialize", CKR_HOST_MEMORY);
  EXPECT_EQ(extension.BringUp(), CKR_HOST_MEMORY);
  EXPECT_EQ(module.Count("C_Initialize"), 3U);
  EXPECT_EQ(extension.BringUp(), CKR_OK);
}

TEST_F(InitialisationTest, ModuleThatHangsWithLocksDoesNotWhenTheCardIsPulled) {
  faults::HangsWithLocks(module);
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  module.before = [this, before = module.before](std::string_view function) {
    if (function == "C_Sign") module.Pull(card);
    return before(function);
  };
  Bytes result;
  EXPECT_EQ(extension.Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(InitialisationTest, WhatSomebodyElseHasInitialisedIsLeftUp) {
  ASSERT_EQ(module.functions()->C_Initialize(nullptr), CKR_OK);
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
  extension.Remove();
  EXPECT_EQ(module.Count("C_Finalize"), 0U);
  EXPECT_EQ(module.Count("C_Logout"), 0U) << "it may be somebody else's login";
  EXPECT_TRUE(module.is_initialized);
  EXPECT_TRUE(module.sessions.empty());
}

TEST_F(InitialisationTest, TheEndLogsOutClosesAndFinalises) {
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
  module.ForgetCalls();
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_THAT(module.Calls(),
              ElementsAre("C_Logout", "C_CloseSession", "C_CloseSession", "C_Finalize"));
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  const CK_SESSION_HANDLE ended = extension.session;
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_EQ(extension.p11->C_Logout(ended), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(InitialisationTest, TheEndLogsOutOnceForAllSessionsAndNotWithoutALogin) {
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  Extension other(folder / "libX.dylib");
  ASSERT_EQ(other.BringUp(), CKR_OK);
  module.ForgetCalls();
  extension.Remove();
  EXPECT_THAT(module.Calls(), ElementsAre("C_CloseSession", "C_CloseSession", "C_Finalize"));
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ASSERT_EQ(other.BringUp(), CKR_OK);
  ASSERT_EQ(extension.LogIn(card.pin), CKR_OK);
  module.ForgetCalls();
  extension.Remove();
  EXPECT_EQ(module.Count("C_Logout"), 1U);
}

TEST_F(InitialisationTest, AfterAFailedEndTheNextInsertionNeedsThePin) {
  faults::FinalizeFailsOnce(module);
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  module.FailNext("C_Logout", CKR_GENERAL_ERROR);
  module.FailNext("C_CloseSession", CKR_GENERAL_ERROR);
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_GENERAL_ERROR);
  EXPECT_TRUE(card.is_logged_in);
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  module.ForgetCalls();
  Extension next(folder / "libX.dylib");
  ASSERT_EQ(next.SetUp(), CKR_OK);
  EXPECT_EQ(module.Calls()[1], "C_Finalize");
  EXPECT_EQ(module.Calls()[2], "C_Initialize");
  EXPECT_FALSE(next.SignsWith(card.KeyOf(ec.private_key)));
  EXPECT_EQ(next.LogIn(card.pin), CKR_OK);
  EXPECT_TRUE(next.SignsWith(card.KeyOf(ec.private_key)));
  module.ForgetCalls();
  next.Remove();
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_EQ(module.Count("C_Finalize"), 1U) << "what is finalised is not finalised again";
}

TEST_F(InitialisationTest, AfterAFailedEndALogoutIsEnough) {
  faults::FinalizeFailsOnce(module);
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  extension.Remove();
  EXPECT_FALSE(card.is_logged_in);
  EXPECT_TRUE(module.sessions.empty());
}

TEST_F(InitialisationTest, WhatRefusesToBeFinalisedTwiceIsStillOurs) {
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  module.FailNext("C_Finalize", CKR_GENERAL_ERROR);
  module.FailNext("C_Finalize", CKR_GENERAL_ERROR);
  extension.Remove();
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_TRUE(module.is_initialized);
  extension.Remove();
  EXPECT_FALSE(module.is_initialized);
}

TEST_F(InitialisationTest, WhatIsInitialisedTwiceGoesOn) {
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  EXPECT_EQ(extension.p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(module.Count("C_Initialize"), 1U);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
}

TEST_F(InitialisationTest, SessionsAreReadOnlyWhereTheModuleRefusesOthers) {
  faults::RefusesWriting(module);
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  EXPECT_EQ(module.Count("C_OpenSession"), 2U);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
  EXPECT_EQ(module.Count("C_OpenSession"), 3U) << "the worker is read-only at once";
  for (const auto& [handle, session] : module.sessions) {
    EXPECT_EQ(session.flags, CK_FLAGS{CKF_SERIAL_SESSION});
  }
}

TEST_F(InitialisationTest, SessionThatIsRefusedEitherWaySaysWhyAtFirst) {
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  CK_SESSION_HANDLE session = 77;
  const auto open = [&](CK_FLAGS more) {
    module.FailNext("C_OpenSession", CKR_DEVICE_MEMORY);
    return extension.p11->C_OpenSession(extension.slot, CKF_SERIAL_SESSION | more, nullptr, nullptr,
                                        &session);
  };
  module.ForgetCalls();
  EXPECT_EQ(open(0), CKR_DEVICE_MEMORY);
  EXPECT_EQ(module.Count("C_OpenSession"), 1U) << "there is no other way";
  module.over.C_OpenSession = [](auto...) { return CK_RV{CKR_DEVICE_ERROR}; };
  EXPECT_EQ(open(CKF_RW_SESSION), CKR_DEVICE_MEMORY);
  EXPECT_EQ(session, 77U);
  module.over.C_OpenSession = nullptr;
  module.next_session = 0;
  EXPECT_EQ(extension.BringUp(), INIT_ERR_SESSION) << "a handle of 0";
}

// The token's few sessions are for the caller.
TEST_F(InitialisationTest, IdleWorkerMakesRoomForASession) {
  module.over.C_OpenSession = [this](auto... arguments) -> CK_RV {
    return module.sessions.size() < 2 ? module.standard.C_OpenSession(arguments...)
                                      : CKR_SESSION_COUNT;
  };
  ASSERT_EQ(SetUpAndLogIn(), CKR_OK);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
  ASSERT_EQ(module.sessions.size(), 2U);
  Extension other(folder / "libX.dylib");
  ASSERT_EQ(other.SetUp(), CKR_OK);
  EXPECT_EQ(module.sessions.size(), 2U);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key))) << "on the caller's own session";
  EXPECT_EQ(other.BringUp(), INIT_ERR_SESSION);
}

TEST_F(InitialisationTest, InformationIsTheModulesInTheAdaptersVersion) {
  module.over.C_GetInfo = [this](CK_INFO* info) -> CK_RV {
    const CK_RV result = module.standard.C_GetInfo(info);
    info->cryptokiVersion = {3, 1};
    return result;
  };
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  CK_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetInfo(&info), CKR_OK);
  EXPECT_EQ(info.cryptokiVersion.major, 2);
  EXPECT_EQ(info.cryptokiVersion.minor, 40);
  EXPECT_EQ(std::string(std::begin(info.libraryDescription), std::end(info.libraryDescription)),
            "Memory module                   ");
  module.FailNext("C_GetInfo", CKR_DEVICE_ERROR);
  info = {};
  EXPECT_EQ(extension.p11->C_GetInfo(&info), CKR_DEVICE_ERROR);
  EXPECT_EQ(info.cryptokiVersion.major, 0);
}

TEST_F(InitialisationTest, SetupErrorsNameFileAndLineUntilTheConfigurationIsCorrected) {
  const auto print = [&](const std::string& configuration, CK_RV expected) {
    folder.Write("libX.conf", configuration);
    testing::internal::CaptureStderr();
    EXPECT_EQ(extension.BringUp(), expected) << configuration;
    return testing::internal::GetCapturedStderr();
  };
  const std::string conf = "Kelvrin adapter: " + (folder / "libX.conf").string();
  EXPECT_THAT(print("module = m\nprofile = x\n", CKR_GENERAL_ERROR),
              StartsWith(conf + ":2: the key 'profile' is gone"));
  EXPECT_THAT(
      print("# here\nmodule = none.so\n", CKR_FUNCTION_FAILED),
      StartsWith(conf + ":2: module '" + (folder / "none.so").string() + "' cannot be loaded"));
  EXPECT_THAT(print("module = libX.dylib\n", CKR_FUNCTION_FAILED),
              HasSubstr("libX.dylib' is the adapter itself"));
  EXPECT_THAT(print(std::string("module = ") + MEMORY_MODULE_PATH, CKR_OK), IsEmpty());
}

}  // namespace
}  // namespace kelvrin::adapter
