#include "adapter/inner/inner_module.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "adapter/config/setup_error.h"
#include "tests/module/memory_module.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;

// Why loading this module is refused.
std::string Refusal(const std::filesystem::path& module, const CK_FUNCTION_LIST* own = nullptr) {
  Config config;
  config.file = "/f.conf";
  config.module_line = 4;
  config.module = module;
  try {
    LoadInnerModule(config, own);
  } catch (const SetupError& error) {
    EXPECT_EQ(error.result(), CKR_FUNCTION_FAILED);
    const std::string line = error.what();
    const std::string begin = "/f.conf:4: module '" + module.string() + "' ";
    const std::string end = "; name a PKCS#11 version 2 module that this system can load";
    EXPECT_TRUE(line.starts_with(begin) && line.ends_with(end)) << line;
    return line.substr(begin.size(), line.size() - begin.size() - end.size());
  }
  ADD_FAILURE() << "accepted";
  return "";
}

std::filesystem::path Faulty(const std::string& name) {
  return std::filesystem::path(KELVRIN_FAULTY_MODULES) / ("faulty_" + name + ".so");
}

TEST(InnerModuleTest, WhatIsNoModuleIsRefusedWithTheReason) {
  const TemporaryFolder folder;
  EXPECT_THAT(Refusal(folder.Write("text.so", "not a library")), HasSubstr("cannot be loaded ("));
  EXPECT_THAT(Refusal("/nowhere/m.so"), HasSubstr("cannot be loaded (/nowhere/m.so"));
  EXPECT_THAT(Refusal(SCRIPTED_UNRESOLVED_PATH), HasSubstr("undefined symbol"));
  EXPECT_EQ(Refusal(SCRIPTED_NO_FUNCTION_LIST_PATH), "has no C_GetFunctionList");
  EXPECT_EQ(Refusal(SCRIPTED_FAILING_PATH), "hands out no function list (result 2)");
  EXPECT_EQ(Refusal(Faulty("null_list")), "hands out no function list (result 0)");
  EXPECT_EQ(Refusal(Faulty("version_1")), "is of PKCS#11 version 1");
  // The linker would wait for a pipe's writer.
  const auto pipe = folder / "m.so";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(Refusal(pipe), "is no regular file");
  EXPECT_EQ(Refusal(folder.path()), "is no regular file");
}

// Under whatever name: behind it the adapter would wait for itself.
TEST(InnerModuleTest, TheAdapterItselfIsRefused) {
  void* const library = dlopen(SCRIPTED_MODULE_PATH, RTLD_NOW);
  ASSERT_NE(library, nullptr);
  const auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"));
  CK_FUNCTION_LIST_PTR own = nullptr;
  ASSERT_EQ(get(&own), CKR_OK);
  EXPECT_EQ(Refusal(SCRIPTED_MODULE_PATH, own), "is the adapter itself");
}

TEST(InnerModuleTest, ListFullOfNullsLoadsAndAnswersNotSupported) {
  Config config;
  config.module = Faulty("empty_list");
  const CK_FUNCTION_LIST list = LoadInnerModule(config, nullptr);
  EXPECT_EQ(list.C_Initialize(nullptr), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(list.C_Sign(0, nullptr, 0, nullptr, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST(FunctionListTest, EveryEntryIsFilledAndOfferedOnesAreKept) {
  const CK_FUNCTION_LIST& module = *MemoryModule::Instance().functions();
  CK_FUNCTION_LIST offered = {};
  offered.version = {2, 40};
  offered.C_Login = module.C_Login;
  offered.C_WaitForSlotEvent = module.C_WaitForSlotEvent;
  const CK_FUNCTION_LIST complete = CompleteFunctionList(offered);
  EXPECT_EQ(complete.C_Login, offered.C_Login);
  EXPECT_NE(complete.C_WaitForSlotEvent, offered.C_WaitForSlotEvent) << "never called";
  EXPECT_EQ(complete.version.minor, 40);
  constexpr std::size_t kFirst = offsetof(CK_FUNCTION_LIST, C_Initialize);
  for (std::size_t at = kFirst; at < sizeof(complete); at += sizeof(void*)) {
    void* entry = nullptr;
    std::memcpy(&entry, reinterpret_cast<const char*>(&complete) + at, sizeof(entry));
    EXPECT_NE(entry, nullptr) << "entry " << (at - kFirst) / sizeof(void*);
  }
}

}  // namespace
}  // namespace kelvrin::adapter
