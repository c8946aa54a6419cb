// Recording, scripting and the loadable form.
#include "tests/module/scripted_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

#include "tests/module/module_control.h"

namespace {

using scripted::Effect;
using scripted::Function;
using scripted::ScriptedModule;
using testing::ElementsAre;

TEST(ScriptedModule, FillsEveryEntryOfTheList) {
  ScriptedModule module;
  void* entries[68];
  const char* first = reinterpret_cast<const char*>(&module.functions()->C_Initialize);
  static_assert(sizeof(CK_FUNCTION_LIST) == 8 + sizeof entries);
  memcpy(entries, first, sizeof entries);
  for (void* entry : entries) EXPECT_NE(entry, nullptr);
  EXPECT_STREQ(FunctionName(Function::C_WaitForSlotEvent), "C_WaitForSlotEvent");
  EXPECT_EQ(static_cast<int>(Function::C_WaitForSlotEvent), 67);
}

TEST(ScriptedModule, RendersCallsInOrder) {
  ScriptedModule module;
  CK_FUNCTION_LIST* p11 = module.functions();
  CK_ULONG count = 0;
  CK_BYTE data[] = {0x61, 0x62};
  CK_BYTE room[8];
  CK_ULONG length = sizeof room;
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof object_class}, {CKA_ID, data, 2}};
  CK_ATTRIBUTE asked[] = {{CKA_LABEL, room, sizeof room}, {CKA_VALUE, nullptr, 0}};
  CK_OBJECT_HANDLE handles[10];
  CK_ULONG found = 10;
  CK_SESSION_HANDLE session;
  CK_MECHANISM plain = {CKM_RSA_PKCS, nullptr, 0};
  CK_MECHANISM with_parameter = {CKM_SHA256_RSA_PKCS_PSS, data, 2};
  p11->C_Initialize(nullptr);
  p11->C_GetSlotList(CK_FALSE, nullptr, &count);
  p11->C_OpenSession(5, 6, nullptr, nullptr, &session);
  p11->C_FindObjectsInit(7, wanted, 2);
  p11->C_FindObjects(7, handles, 10, &found);
  p11->C_GetAttributeValue(7, 12, asked, 2);
  p11->C_SignInit(7, &plain, 12);
  p11->C_SignInit(7, &with_parameter, 12);
  p11->C_Sign(7, data, 2, room, &length);
  p11->C_Login(7, CKU_USER, data, 2);
  p11->C_Sign(7, nullptr, 0, nullptr, &length);
  p11->C_DeriveKey(7, &plain, 12, nullptr, 0, &session);
  p11->C_GenerateRandom(7, room, 8);
  p11->C_GenerateKeyPair(7, &plain, wanted, 1, nullptr, 0, &handles[0], &handles[1]);
  EXPECT_THAT(
      module.Texts(),
      ElementsAre(
          "C_Initialize(NULL)", "C_GetSlotList(0, NULL[0])", "C_OpenSession(5, 6, NULL, NULL, out)",
          "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=6162})",
          "C_FindObjects(7, room[10], 10)", "C_GetAttributeValue(7, 12, {0x3[8], 0x11=NULL[0]})",
          "C_SignInit(7, {0x1}, 12)", "C_SignInit(7, {0x43 6162}, 12)",
          "C_Sign(7, <6162>, room[8])", "C_Login(7, 1, <6162>)", "C_Sign(7, NULL[0], NULL[0])",
          "C_DeriveKey(7, {0x1}, 12, NULL[0], out)", "C_GenerateRandom(7, room[8])",
          "C_GenerateKeyPair(7, {0x1}, {0x0=0300000000000000}, NULL[0], out, out)"));
}

TEST(ScriptedModule, KeepsDeepCopies) {
  ScriptedModule module;
  CK_BYTE pin[] = {'1', '2'};
  module.functions()->C_Login(1, CKU_USER, pin, sizeof pin);
  const CK_BYTE* address = pin;
  pin[0] = 'x';
  const scripted::Call call = module.At(Function::C_Login);
  EXPECT_THAT(call.arguments[2].bytes, ElementsAre('1', '2'));
  EXPECT_EQ(call.arguments[2].address, address);
}

TEST(ScriptedModule, AnswersAsToldBeforeItAsksTheCard) {
  ScriptedModule module;
  CK_FUNCTION_LIST* p11 = module.functions();
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  module.ReturnOnce(Function::C_Initialize, CKR_HOST_MEMORY);
  module.ReturnOnce(Function::C_Initialize, CKR_CANT_LOCK);
  module.ReturnAt(Function::C_Initialize, 4, CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_HOST_MEMORY);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CANT_LOCK);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  module.Return(Function::C_Initialize, CKR_OK);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  module.Reset();
  EXPECT_THAT(module.Texts(), ElementsAre());
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
}

TEST(ScriptedModule, ScriptedResultTouchesNothingUnlessItIsToPerform) {
  ScriptedModule module;
  module.card().signature.bytes = {1, 2, 3};
  CK_BYTE out[4] = {9, 9, 9, 9};
  CK_ULONG length = sizeof out;
  module.ReturnOnce(Function::C_Sign, CKR_DEVICE_ERROR);
  EXPECT_EQ(module.functions()->C_Sign(1, nullptr, 0, out, &length), CKR_DEVICE_ERROR);
  EXPECT_EQ(length, 4u);
  EXPECT_THAT(out, ElementsAre(9, 9, 9, 9));
  module.ReturnOnce(Function::C_Sign, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(module.functions()->C_Sign(1, nullptr, 0, out, &length), CKR_DEVICE_ERROR);
  EXPECT_EQ(length, 3u);
  EXPECT_THAT(out, ElementsAre(1, 2, 3, 9));
}

TEST(ScriptedModule, FunctionsWithoutBehaviourAreRecordedAndRefused) {
  ScriptedModule module;
  CK_BYTE pin[] = {'1'};
  EXPECT_EQ(module.functions()->C_SetPIN(1, pin, 1, pin, 1), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_THAT(module.Texts(), ElementsAre("C_SetPIN(1, <31>, <31>)"));
}

TEST(ScriptedModule, ModulesAliveTogetherAreApart) {
  auto first = std::make_unique<ScriptedModule>();
  ScriptedModule second;
  first->functions()->C_Initialize(nullptr);
  second.functions()->C_Logout(3);
  EXPECT_THAT(first->Names(), ElementsAre("C_Initialize"));
  EXPECT_THAT(second.Names(), ElementsAre("C_Logout"));
  CK_FUNCTION_LIST list = *first->functions();
  first.reset();
  EXPECT_EQ(list.C_Initialize(nullptr), CKR_GENERAL_ERROR);
}

TEST(ScriptedModule, ObserverSeesTheCallAndMayAskTheModule) {
  ScriptedModule module;
  std::vector<std::string> seen;
  module.Observe([&](const scripted::Call& call) {
    seen.push_back(call.Text() + " of " + std::to_string(module.Texts().size()));
  });
  module.functions()->C_CloseSession(3);
  EXPECT_THAT(seen, ElementsAre("C_CloseSession(3) of 1"));
}

TEST(ScriptedModule, RecordsFromSeveralThreads) {
  ScriptedModule module;
  auto work = [&module] {
    for (int i = 0; i < 100; ++i) module.functions()->C_CloseSession(1);
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(module.Count(Function::C_CloseSession), 200u);
}

TEST(LoadableScriptedModule, HandsOutTheListThatTheControlScripts) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  CK_FUNCTION_LIST* list = nullptr;
  ASSERT_EQ(control->functions()->C_GetFunctionList(&list), CKR_OK);
  ASSERT_EQ(list, control->functions());
  control->Return(Function::C_Initialize, CKR_DEVICE_ERROR);
  EXPECT_EQ(list->C_Initialize(nullptr), CKR_DEVICE_ERROR);
  EXPECT_THAT(control->Names(), ElementsAre("C_GetFunctionList", "C_Initialize"));
}

TEST(LoadableScriptedModule, IsGoneOnceTheControlIs) {
  EXPECT_FALSE(scripted::IsLoaded(SCRIPTED_MODULE_PATH));
  {
    scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
    EXPECT_TRUE(scripted::IsLoaded(SCRIPTED_MODULE_PATH));
  }
  EXPECT_FALSE(scripted::IsLoaded(SCRIPTED_MODULE_PATH));
}

}  // namespace
