// The built library's entries, and its life in a process.
#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>

#include "adapter/inner/function_names.h"
#include "adapter/testing/behaviour_fixture.h"
#include "adapter/testing/loaded_library.h"
#include "tests/module/functions.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

template <typename... Arguments>
CK_RV CallWithNothing(CK_RV (*entry)(Arguments...)) {
  return entry(Arguments{}...);
}

// What the extension and modulecheck call.
const std::string kServed =
    " C_Initialize C_Finalize C_GetInfo C_GetFunctionList C_GetSlotList C_GetSlotInfo "
    "C_GetTokenInfo C_GetMechanismList C_GetMechanismInfo C_OpenSession C_CloseSession "
    "C_CloseAllSessions C_GetSessionInfo C_Login C_Logout C_DestroyObject C_GetAttributeValue "
    "C_FindObjectsInit C_FindObjects C_FindObjectsFinal C_SignInit C_Sign C_DecryptInit C_Decrypt "
    "C_DeriveKey ";
bool IsServed(const std::string& name) {
  return kServed.find(" " + name + " ") != std::string::npos;
}

class FunctionListTest : public BehaviourTest {};

TEST_F(FunctionListTest, NamesAreTheWholeList) {
  std::set<std::string> names;
#define KELVRIN_NAME(name) names.insert(#name);
  SCRIPTED_FUNCTIONS(KELVRIN_NAME)
#undef KELVRIN_NAME
  std::set<std::string> present;
  CK_FUNCTION_LIST* const p11 = LoadLibrary(Adapter());
  EXPECT_EQ(p11->version.major, 2);
  EXPECT_EQ(p11->version.minor, 40);
#define KELVRIN_LOOK(name) \
  if (p11->name != nullptr) present.insert(#name);
  KELVRIN_FOR_EACH_FUNCTION(KELVRIN_LOOK, KELVRIN_LOOK)
#undef KELVRIN_LOOK
  EXPECT_EQ(present, names);
}

TEST_F(FunctionListTest, WhatNobodyCallsIsNotSupported) {
  AddCard();
  CK_FUNCTION_LIST* const p11 = LoadLibrary(Adapter());
  for (const bool is_up : {false, true}) {
    if (is_up) {
      ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    }
    module.ForgetCalls();
#define KELVRIN_EXPECT_NOT_SUPPORTED(name) \
  if (!IsServed(#name)) EXPECT_EQ(CallWithNothing(p11->name), CKR_FUNCTION_NOT_SUPPORTED);
    KELVRIN_FOR_EACH_FUNCTION(KELVRIN_EXPECT_NOT_SUPPORTED, KELVRIN_EXPECT_NOT_SUPPORTED)
#undef KELVRIN_EXPECT_NOT_SUPPORTED
    EXPECT_THAT(module.Calls(), IsEmpty());
  }
}

TEST_F(FunctionListTest, BeforeInitializeAndAfterFinalizeEveryServedEntrySaysSo) {
  AddCard();
  CK_FUNCTION_LIST* const p11 = LoadLibrary(Adapter());
  // The last two take what they are given before they look.
  const std::set<std::string> others = {"C_Initialize", "C_GetFunctionList", "C_SignInit",
                                        "C_DecryptInit"};
  for (int round = 0; round < 2; ++round) {
    const auto look = [&](const std::string& name, const auto& entry) {
      if (!IsServed(name) || others.contains(name)) return;
      EXPECT_EQ(CallWithNothing(entry), CKR_CRYPTOKI_NOT_INITIALIZED) << name;
    };
#define KELVRIN_LOOK(name) look(#name, p11->name);
    KELVRIN_FOR_EACH_FUNCTION(KELVRIN_LOOK, KELVRIN_LOOK)
#undef KELVRIN_LOOK
    CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
    EXPECT_EQ(p11->C_SignInit(1, &mechanism, 1), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_DecryptInit(1, &mechanism, 1), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  }
  EXPECT_EQ(p11->C_GetFunctionList(nullptr), CKR_ARGUMENTS_BAD);
}

// Nothing else of the adapter's meets a symbol of the program's.
TEST_F(FunctionListTest, OnlyTheFunctionListIsExported) {
  const std::string command =
      "llvm-nm-19 -g --defined-only --format=posix --arch=x86_64 " + std::string(Adapter());
  const std::unique_ptr<FILE, int (*)(FILE*)> list(popen(command.c_str(), "r"), &pclose);
  ASSERT_NE(list, nullptr);
  std::vector<std::string> names;
  std::array<char, 1000> line = {};
  while (fgets(line.data(), line.size(), list.get()) != nullptr) {
    const std::string text = line.data();
    names.push_back(text.substr(0, text.find(' ')));
  }
  EXPECT_THAT(names, ElementsAre(EndsWith("C_GetFunctionList")));
}

TEST_F(FunctionListTest, StaysMappedWhenItIsClosed) {
  const auto library = Adapter();
  void* const handle = dlopen(library.c_str(), RTLD_NOW);
  ASSERT_NE(handle, nullptr);
  CK_FUNCTION_LIST* const p11 = LoadLibrary(library);
  EXPECT_EQ(dlclose(handle), 0);
  EXPECT_EQ(dlclose(handle), 0);
  EXPECT_NE(dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(FunctionListTest, NoExceptionGetsOut) {
  const auto behind = folder / "throwing.so";
  std::filesystem::copy_file(MEMORY_MODULE_PATH, behind);
  MemoryModule& throwing = LoadMemoryModule(behind);
  throwing.AddCard();
  CK_FUNCTION_LIST* const p11 = LoadLibrary(Adapter("", "libX", behind));
  ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  CK_INFO info = {};
  throwing.over.C_GetInfo = [](auto) -> CK_RV { throw std::bad_alloc(); };
  // What another C++ library throws is an exception without a type.
  EXPECT_EQ(p11->C_GetInfo(&info), product::AreShipped() ? CKR_GENERAL_ERROR : CKR_HOST_MEMORY);
  throwing.over.C_GetInfo = [](auto) -> CK_RV { throw std::runtime_error("no"); };
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_GENERAL_ERROR);
  throwing.over.C_GetInfo = nullptr;
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK) << "the lock is free again";
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
}

TEST_F(FunctionListTest, TwoFilesAreTwoAdapters) {
  AddCard({.label = "1 A"});
  Extension one(Adapter("token-label = 1 A\n", "libOne"));
  ASSERT_EQ(one.SetUp(), CKR_OK);
  AddCard({.label = "2 B"});
  Extension two(Adapter("token-label = 2 B\n", "libTwo"));
  ASSERT_EQ(two.SetUp(), CKR_OK);
  EXPECT_NE(one.p11, two.p11);
  EXPECT_EQ(one.card_number, "1");
  EXPECT_EQ(two.card_number, "2");
}

}  // namespace
}  // namespace kelvrin::adapter
