// Bringing a module up, from loading to the open session.
#include "p11/bringup.h"

#include <cstdlib>

#include "p11/loader.h"
#include "tests/module/bringup_fixture.h"
#include "tests/module/module_control.h"

namespace {

using scripted::CapturedOutput;
using scripted::Function;
using testing::ElementsAre;
using testing::IsEmpty;

class BringupTest : public scripted::BringupTest {};

TEST(BringupResults, LieOutsideTheStandardsCodes) {
  EXPECT_EQ(INIT_ERR_MODULE, 0x900u);
  EXPECT_EQ(INIT_ERR_NO_SLOTS, 0x901u);
  EXPECT_EQ(INIT_ERR_SESSION, 0x902u);
  EXPECT_EQ(INIT_ERR_READER_NAME, 0x903u);
}

TEST_F(BringupTest, ModuleThatCannotBeLoadedIsReported) {
  handle_ = nullptr;
  CapturedOutput out(1);
  CapturedOutput err(2);
  EXPECT_EQ(init("/nowhere/module.so", &handle_, &list_, &slot_, &session_, ""), 0x900u);
  EXPECT_EQ(err.Text(),
            "kvdl_dlopen failed: /nowhere/module.so: cannot open shared object file: No such file "
            "or directory\n");
  EXPECT_EQ(out.Text(), "");
  EXPECT_EQ(handle_, nullptr);
  EXPECT_THAT(Log(), ElementsAre("error: Fehler beim Laden von PKCS11-Modul."));
  EXPECT_THAT(module_.Texts(), IsEmpty());
}

TEST_F(BringupTest, LoadsTheModuleAndBringsItUp) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  control->card().AddSlot(5, "Reader A");
  handle_ = nullptr;
  list_ = nullptr;
  EXPECT_EQ(init(SCRIPTED_MODULE_PATH, &handle_, &list_, &slot_, &session_, ""), CKR_OK);
  EXPECT_NE(handle_, nullptr);
  EXPECT_EQ(list_, control->functions());
  EXPECT_EQ(slot_, 5u);
  EXPECT_EQ(session_, 1u);
  EXPECT_THAT(
      control->Texts(),
      ElementsAre("C_GetFunctionList(out)", "C_Initialize(NULL)", "C_GetSlotList(0, NULL[0])",
                  "C_GetSlotList(0, room[1])", "C_OpenSession(5, 6, NULL, NULL, out)"));
  EXPECT_THAT(
      Log(),
      ElementsAre("default: PKCS11-Modul wurde geladen.", "default: Initialisierung erfolgreich.",
                  "default: 1 Slot(s) gefunden.\n", "default: Session erfolgreich initialisiert."));
  EXPECT_EQ(C_UnloadModule(handle_), CKR_OK);
}

TEST_F(BringupTest, FailureAfterLoadingLeavesTheModuleLoaded) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  control->Return(Function::C_Initialize, CKR_DEVICE_ERROR);
  wrapped::Reset();
  handle_ = nullptr;
  EXPECT_EQ(init(SCRIPTED_MODULE_PATH, &handle_, &list_, &slot_, &session_, ""), CKR_DEVICE_ERROR);
  EXPECT_NE(handle_, nullptr);
  EXPECT_EQ(list_, control->functions());
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_EQ(control->Count(Function::C_Finalize), 0u);
  EXPECT_EQ(C_UnloadModule(handle_), CKR_OK);
}

TEST_F(BringupTest, LoadedModuleIsNotLoadedAgain) {
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_EQ(wrapped::calls().dlopen_count, 0u);
  EXPECT_EQ(handle_, static_cast<void*>(&handle_));
  EXPECT_EQ(list_, p11_);
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 1 Slot(s) gefunden.\n",
                          "default: Session erfolgreich initialisiert."));
}

TEST_F(BringupTest, AlreadyInitialisedModuleIsAWarningThatStandsWhereANameBelongs) {
  card_.AddSlot(5, "Reader A");
  card_.initialized = true;
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_THAT(Log(),
              ElementsAre("default: PKCS11 function *** PKCS11-Bibliothek bereits "
                          "initalisiert. failed: rv = CKR_CRYPTOKI_ALREADY_INITIALIZED "
                          "(0x191)",
                          "default: Initialisierung erfolgreich.", "default: 1 Slot(s) gefunden.\n",
                          "default: Session erfolgreich initialisiert."));
}

TEST_F(BringupTest, FailedInitializeEndsTheBringUp) {
  module_.Return(Function::C_Initialize, CKR_CANT_LOCK);
  EXPECT_EQ(Init(""), CKR_CANT_LOCK);
  EXPECT_THAT(module_.Texts(), ElementsAre("C_Initialize(NULL)"));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_Initialize failed: rv = CKR_CANT_LOCK "
                                 "(0xa)"));
  EXPECT_EQ(handle_, static_cast<void*>(&handle_));
}

TEST_F(BringupTest, ModuleWithoutSlotsIsReported) {
  EXPECT_EQ(Init("Reader"), 0x901u);
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "error: Keine Slots gefunden."));
  EXPECT_THAT(module_.Names(), ElementsAre("C_Initialize", "C_GetSlotList", "C_GetSlotList"));
  EXPECT_EQ(handle_, static_cast<void*>(&handle_));
}

// The module takes its slots back while they are listed.
TEST_F(BringupTest, NoSlotInTheSecondAnswerIsNoSlot) {
  card_.slot_list_answers = {{CKR_OK, 3}, {CKR_OK, 0}};
  EXPECT_EQ(Init("Reader"), 0x901u);
  EXPECT_EQ(module_.Count(Function::C_OpenSession), 0u);
  EXPECT_EQ(Log().back(), "error: Keine Slots gefunden.");
}

TEST_F(BringupTest, NoSlotIsNoFailedAllocationEvenIfNothingIsAllocated) {
  wrapped::calls().empty_calloc_is_null = true;
  EXPECT_EQ(Init(""), 0x901u);
}

TEST_F(BringupTest, FailedSlotListsAreLoggedAndIgnored) {
  module_.Return(Function::C_GetSlotList, CKR_DEVICE_ERROR);
  EXPECT_EQ(Init(""), 0x901u);
  EXPECT_THAT(
      Log(), ElementsAre("default: Initialisierung erfolgreich.",
                         "error: PKCS11 function C_GetSlotList(NULL) failed: rv = CKR_DEVICE_ERROR "
                         "(0x30)",
                         "error: PKCS11 function C_GetSlotList() failed: rv = CKR_DEVICE_ERROR "
                         "(0x30)",
                         "error: Keine Slots gefunden."));
}

TEST_F(BringupTest, RefusedSessionDoesNotPassTheModulesCodeOn) {
  card_.AddSlot(5, "Reader A").token_present = false;
  EXPECT_EQ(Init(""), 0x902u);
  EXPECT_THAT(Log(),
              ElementsAre("default: Initialisierung erfolgreich.", "default: 1 Slot(s) gefunden.\n",
                          "error: PKCS11 function C_OpenSession failed: rv = "
                          "CKR_TOKEN_NOT_PRESENT (0xe0)",
                          "error: Session konnte nicht initialisiert werden."));
  EXPECT_EQ(session_, kUntouched);
  EXPECT_EQ(handle_, static_cast<void*>(&handle_));
  EXPECT_EQ(module_.Count(Function::C_Finalize), 0u);
}

TEST_F(BringupTest, WriteProtectedTokenGetsNoReadOnlySession) {
  card_.AddSlot(5, "Reader A");
  module_.Return(Function::C_OpenSession, CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_EQ(Init(""), 0x902u);
  EXPECT_EQ(module_.Count(Function::C_OpenSession), 1u);
  EXPECT_EQ(module_.Texts().back(), "C_OpenSession(5, 6, NULL, NULL, out)");
}

TEST_F(BringupTest, ListsSlotsWithAndWithoutACard) {
  card_.AddSlot(5, "Reader A").token_present = false;
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  EXPECT_EQ(slot_, 6u);
  EXPECT_EQ(module_.Texts().at(1), "C_GetSlotList(0, NULL[0])");
}

TEST_F(BringupTest, SecondBringUpOpensANewSessionAndClosesNothing) {
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_EQ(session_, 1u);
  EXPECT_EQ(Init(""), CKR_OK);
  EXPECT_EQ(session_, 2u);
  EXPECT_THAT(module_.Names(),
              ElementsAre("C_Initialize", "C_GetSlotList", "C_GetSlotList", "C_OpenSession",
                          "C_Initialize", "C_GetSlotList", "C_GetSlotList", "C_OpenSession"));
}

TEST_F(BringupTest, SlotArrayIsNeverFreed) {
  EXPECT_EQ(Init(""), 0x901u);
  card_.AddSlot(5, "Reader A");
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init(""), 0x903u);
  EXPECT_EQ(Init("Reader B"), CKR_OK);
  module_.Return(Function::C_OpenSession, CKR_SESSION_COUNT);
  EXPECT_EQ(Init("Reader B"), 0x902u);
  ASSERT_EQ(wrapped::calls().calloc_count, 4u);
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(wrapped::calls().callocs[i].freed);
}

TEST_F(BringupTest, NothingIsLoggedWhenTheTypesAreOff) {
  const oslog::Disabled no_progress(OS_LOG_TYPE_DEFAULT);
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  CapturedOutput out(1);
  CapturedOutput err(2);
  card_.initialized = true;
  EXPECT_EQ(Init(""), 0x901u);
  card_.AddSlot(5, "Reader A");
  EXPECT_EQ(Init("Reader"), CKR_OK);
  card_.AddSlot(6, "Reader B");
  EXPECT_EQ(Init(""), 0x903u);
  module_.Return(Function::C_OpenSession, CKR_SESSION_COUNT);
  EXPECT_EQ(Init("Reader"), 0x902u);
  EXPECT_EQ(err.Text(), "");
  EXPECT_EQ(out.Text(), "");
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(wrapped::calls().result_name_count, 0u);
}

TEST_F(BringupTest, DefaultTypeOffKeepsTheErrors) {
  const oslog::Disabled no_progress(OS_LOG_TYPE_DEFAULT);
  EXPECT_EQ(Init(""), 0x901u);
  EXPECT_THAT(Log(), ElementsAre("error: Keine Slots gefunden."));
}

TEST_F(BringupTest, NoFailureUnloadsTheModule) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  wrapped::Reset();
  handle_ = nullptr;
  const auto bring_up = [&] {
    return init(SCRIPTED_MODULE_PATH, &handle_, &list_, &slot_, &session_, "");
  };
  EXPECT_EQ(bring_up(), 0x901u);
  void* const loaded = handle_;
  ASSERT_NE(loaded, nullptr);
  control->card().AddSlot(5, "Reader A").token_present = false;
  EXPECT_EQ(bring_up(), 0x902u);
  control->card().AddSlot(6, "Reader B");
  EXPECT_EQ(bring_up(), 0x903u);
  EXPECT_EQ(handle_, loaded);
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_EQ(control->Count(Function::C_Finalize), 0u);
  EXPECT_EQ(C_UnloadModule(handle_), CKR_OK);
}

TEST_F(BringupTest, ModuleWritesTheCallersSession) {
  card_.AddSlot(5, "Reader A");
  module_.Return(Function::C_OpenSession, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Init(""), 0x902u);
  EXPECT_EQ(module_.At(Function::C_OpenSession).arguments[4].address, &session_);
}

}  // namespace
