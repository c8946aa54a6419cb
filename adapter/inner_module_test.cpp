#include "adapter/inner_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "adapter/setup_error.h"
#include "adapter/testing/fake_module.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// The line with which loading this module is refused.
std::string Refusal(const std::filesystem::path& module) {
  Config config;
  config.file = "/f.conf";
  config.module_line = 4;
  config.module = module;
  try {
    LoadInnerModule(config);
  } catch (const SetupError& error) {
    EXPECT_EQ(error.result(), CKR_FUNCTION_FAILED);
    EXPECT_THAT(error.what(), StartsWith("/f.conf:4: module '" + module.string() + "' "));
    EXPECT_THAT(error.what(), HasSubstr("; name a PKCS#11 version 2 module"));
    return error.what();
  }
  ADD_FAILURE() << "accepted";
  return "";
}

std::filesystem::path Faulty(const std::string& name) {
  return std::filesystem::path(KELVRIN_FAULTY_MODULES) / ("faulty_" + name + ".so");
}

TEST(InnerModuleTest, MissingFileIsNamed) {
  EXPECT_THAT(Refusal("/nowhere/m.so"), HasSubstr("cannot be loaded (/nowhere/m.so"));
}

TEST(InnerModuleTest, FileThatIsNoLibraryIsRefused) {
  const TemporaryFolder folder;
  EXPECT_THAT(Refusal(folder.Write("text.so", "not a library")), HasSubstr("cannot be loaded"));
}

TEST(InnerModuleTest, LibraryWithoutTheFunctionIsRefused) {
  EXPECT_THAT(Refusal(Faulty("no_symbol")), HasSubstr("has no C_GetFunctionList"));
}

TEST(InnerModuleTest, FunctionThatFailsIsRefused) {
  EXPECT_THAT(Refusal(Faulty("failing")), HasSubstr("no function list (result 6)"));
}

TEST(InnerModuleTest, NullListIsRefused) {
  EXPECT_THAT(Refusal(Faulty("null_list")), HasSubstr("no function list (result 0)"));
}

TEST(InnerModuleTest, OldVersionIsRefused) {
  EXPECT_THAT(Refusal(Faulty("version_1")), HasSubstr("is of PKCS#11 version 1"));
}

TEST(InnerModuleTest, ListFullOfNullsLoadsAndAnswersNotSupported) {
  Config config;
  config.module = Faulty("empty_list");
  const CK_FUNCTION_LIST list = LoadInnerModule(config);
  EXPECT_EQ(list.C_Initialize(nullptr), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(list.C_Sign(0, nullptr, 0, nullptr, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(list.C_WaitForSlotEvent(0, nullptr, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST(FunctionListTest, EveryEntryIsFilledAndOfferedOnesAreKept) {
  const FakeModule fake;
  CK_FUNCTION_LIST offered = {};
  offered.version = {2, 40};
  offered.C_Login = FakeModule::functions().C_Login;
  const CK_FUNCTION_LIST complete = CompleteFunctionList(offered);
  EXPECT_EQ(complete.C_Login, offered.C_Login);
  EXPECT_EQ(complete.version.minor, 40);
  constexpr std::size_t kFirst = offsetof(CK_FUNCTION_LIST, C_Initialize);
  for (std::size_t at = kFirst; at < sizeof(complete); at += sizeof(void*)) {
    void* entry = nullptr;
    std::memcpy(&entry, reinterpret_cast<const char*>(&complete) + at, sizeof(entry));
    EXPECT_NE(entry, nullptr) << "entry " << (at - kFirst) / sizeof(void*);
  }
}

TEST(FunctionListTest, ListOfVersion20IsNotReadPastItsEnd) {
  constexpr std::size_t kSize = offsetof(CK_FUNCTION_LIST, C_WaitForSlotEvent);
  const std::unique_ptr<void, decltype(&std::free)> memory(std::calloc(1, kSize), &std::free);
  auto* old = static_cast<CK_FUNCTION_LIST*>(memory.get());
  old->version = {2, 0};
  EXPECT_EQ(CompleteFunctionList(*old).C_WaitForSlotEvent(0, nullptr, nullptr),
            CKR_FUNCTION_NOT_SUPPORTED);
}

}  // namespace
}  // namespace kelvrin::adapter
