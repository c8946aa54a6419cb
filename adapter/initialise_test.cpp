// Bringing the adapter up and down.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "adapter/setup_error.h"
#include "adapter/testing/adapter_fixture.h"
#include "adapter/text_fields.h"

namespace kelvrin::adapter {
namespace {

using InitialiseTest = AdapterTest;

TEST_F(InitialiseTest, SetupErrorIsOneLineOnStandardErrorAndTheResult) {
  Adapter broken([]() -> Backend { throw SetupError(CKR_FUNCTION_FAILED, "f:1: why; cure"); });
  testing::internal::CaptureStderr();
  EXPECT_EQ(broken.Initialize(nullptr), CKR_FUNCTION_FAILED);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Kelvrin adapter: f:1: why; cure\n");
  EXPECT_EQ(broken.Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(InitialiseTest, BadArgumentsInitialiseNothing) {
  CK_C_INITIALIZE_ARGS arguments = {};
  arguments.pReserved = &arguments;
  EXPECT_EQ(adapter_.Initialize(&arguments), CKR_ARGUMENTS_BAD);
  arguments = {};
  arguments.CreateMutex = [](void**) { return CK_RV{CKR_OK}; };
  EXPECT_EQ(adapter_.Initialize(&arguments), CKR_ARGUMENTS_BAD);
  EXPECT_FALSE(fake_.initialized);
}

TEST_F(InitialiseTest, InitialisesWithTheSystemsLocks) {
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  ASSERT_TRUE(fake_.initialize_arguments);
  EXPECT_EQ(fake_.initialize_arguments->flags, CKF_OS_LOCKING_OK);
  EXPECT_EQ(fake_.initialize_arguments->pReserved, nullptr);
}

TEST_F(InitialiseTest, CallerThatAllowsNoThreadsIsObeyedWhereThatCanBe) {
  CK_C_INITIALIZE_ARGS arguments = {};
  arguments.flags = CKF_LIBRARY_CANT_CREATE_OS_THREADS;
  const auto flags_after = [&](std::vector<CK_RV> refusals) -> std::optional<CK_FLAGS> {
    for (const CK_RV refusal : refusals) fake_.FailNext("C_Initialize", refusal);
    EXPECT_EQ(adapter_.Initialize(&arguments), CKR_OK);
    EXPECT_EQ(adapter_.Finalize(nullptr), CKR_OK);
    if (!fake_.initialize_arguments) return std::nullopt;
    return fake_.initialize_arguments->flags;
  };
  constexpr CK_RV kThreads = CKR_NEED_TO_CREATE_THREADS;
  EXPECT_EQ(flags_after({}), CKF_OS_LOCKING_OK | CKF_LIBRARY_CANT_CREATE_OS_THREADS);
  EXPECT_EQ(flags_after({kThreads}), CKF_OS_LOCKING_OK);
  EXPECT_EQ(flags_after({CKR_CANT_LOCK}), CKF_LIBRARY_CANT_CREATE_OS_THREADS);
  EXPECT_EQ(flags_after({kThreads, CKR_CANT_LOCK}), std::nullopt);
  EXPECT_EQ(flags_after({kThreads, kThreads}), std::nullopt);
  arguments.flags = 0;
  EXPECT_EQ(flags_after({}), CKF_OS_LOCKING_OK);
}

TEST_F(InitialiseTest, ModuleThatCannotLockIsInitialisedWithNull) {
  for (const CK_RV refusal : {CKR_CANT_LOCK, CKR_NEED_TO_CREATE_THREADS}) {
    fake_.FailNext("C_Initialize", refusal);
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
    EXPECT_FALSE(fake_.initialize_arguments);
    EXPECT_EQ(adapter_.Finalize(nullptr), CKR_OK);
  }
}

TEST_F(InitialiseTest, ReservedStringReachesTheModuleAlsoWithoutLocks) {
  config_.reserved = "configdir='x'";
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.reserved, "configdir='x'");
  EXPECT_EQ(adapter_.Finalize(nullptr), CKR_OK);
  fake_.FailNext("C_Initialize", CKR_CANT_LOCK);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.reserved, "configdir='x'");
  EXPECT_EQ(fake_.initialize_arguments->flags, 0u);
}

TEST_F(InitialiseTest, WithoutTheRuleTheModuleGetsTheCallersArgumentsOnceAndJudgesThem) {
  config_.rules.SwitchOff(Rule::kInitialisation);
  config_.reserved = "not to be added";
  CK_C_INITIALIZE_ARGS arguments = {};
  char reserved[] = "the caller's own";
  arguments.pReserved = reserved;
  fake_.FailNext("C_Initialize", CKR_CANT_LOCK);
  EXPECT_EQ(adapter_.Initialize(&arguments), CKR_CANT_LOCK);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 1u);
  EXPECT_EQ(fake_.reserved, "the caller's own");
  EXPECT_EQ(fake_.initialize_arguments->flags, 0u);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_FALSE(fake_.initialize_arguments);
}

TEST_F(InitialiseTest, AdaptersThatCountTogetherFinaliseTheModuleOnce) {
  ModuleUses uses;
  const auto open = [this] { return Backend{config_, FakeModule::functions()}; };
  Adapter first(open, &uses);
  Adapter second(open, &uses);
  ASSERT_EQ(first.Initialize(nullptr), CKR_OK);
  ASSERT_EQ(second.Initialize(nullptr), CKR_OK);
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(first.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session), CKR_OK);
  ASSERT_EQ(second.OpenSession(7, kAdapterFlags, nullptr, nullptr, &session), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 1u);
  EXPECT_EQ(first.CloseAllSessions(7), CKR_OK);
  EXPECT_EQ(first.Finalize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Finalize"), 0u);
  EXPECT_EQ(fake_.sessions.size(), 1u);
  EXPECT_EQ(second.CloseSession(session), CKR_OK);
  EXPECT_EQ(second.Finalize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Finalize"), 1u);
}

TEST_F(InitialiseTest, AdapterWhoseModuleAnotherBroughtUpAnewIsNotInitialised) {
  ModuleUses uses;
  const auto open = [this] { return Backend{config_, FakeModule::functions()}; };
  Adapter first(open, &uses);
  Adapter second(open, &uses);
  ASSERT_EQ(first.Initialize(nullptr), CKR_OK);
  ASSERT_EQ(second.Initialize(nullptr), CKR_OK);
  second.CatchUp();
  EXPECT_TRUE(second.Has(Rule::kOneSlot));
  fake_.initialized = false;
  ASSERT_EQ(first.Initialize(nullptr), CKR_OK);
  second.CatchUp();
  EXPECT_FALSE(second.Has(Rule::kOneSlot));
  EXPECT_EQ(second.Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_TRUE(fake_.initialized);
}

TEST_F(InitialiseTest, OtherFailureToInitialiseIsPassedOnOnce) {
  fake_.FailNext("C_Initialize", CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 1u);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
}

TEST_F(InitialiseTest, SecondInitialiseIsAlreadyInitialised) {
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 1u);
}

TEST_F(InitialiseTest, ModuleThatSomebodyElseInitialisedIsUsedAndLeftInitialised) {
  fake_.initialized = true;
  fake_.FailNext("C_Initialize", CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  Open();
  EXPECT_EQ(adapter_.Finalize(nullptr), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Finalize"), 0u);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(InitialiseTest, ModuleThatSomebodyElseFinalisedIsInitialisedAgain) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE old = Open();
  fake_.initialized = false;
  fake_.sessions.clear();
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_TRUE(fake_.initialized);
  EXPECT_EQ(adapter_.FindObjectsFinal(old), CKR_SESSION_HANDLE_INVALID);
  Open();
}

TEST_F(InitialiseTest, FinaliseForgetsEverythingAlsoWhenTheModuleFails) {
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  const CK_SESSION_HANDLE session = Open();
  int reserved = 0;
  EXPECT_EQ(adapter_.Finalize(&reserved), CKR_ARGUMENTS_BAD);
  fake_.FailNext("C_Finalize", CKR_GENERAL_ERROR);
  EXPECT_EQ(adapter_.Finalize(nullptr), CKR_GENERAL_ERROR);
  EXPECT_EQ(adapter_.Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(adapter_.FindObjectsFinal(session), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(adapter_.FindObjectsFinal(session), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(InitialiseTest, InfoIsTheModulesInVersion240) {
  CK_INFO info = {};
  EXPECT_EQ(adapter_.GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
  ASSERT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(adapter_.GetInfo(nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(adapter_.GetInfo(&info), CKR_OK);
  EXPECT_EQ(info.libraryVersion.major, 9);
  EXPECT_EQ(info.cryptokiVersion.major, 2);
  EXPECT_EQ(info.cryptokiVersion.minor, 40);
  fake_.FailNext("C_GetInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(adapter_.GetInfo(&info), CKR_DEVICE_ERROR);
  ASSERT_EQ(adapter_.Finalize(nullptr), CKR_OK);
  EXPECT_EQ(adapter_.GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
}

}  // namespace
}  // namespace kelvrin::adapter
