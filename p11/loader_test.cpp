#include "p11/loader.h"

#include <dlfcn.h>
#include <stdlib.h>

#include "tests/module/module_control.h"
#include "tests/module/p11_fixture.h"
#include "tests/temporary_folder.h"

namespace {

using scripted::CapturedOutput;
using scripted::Function;
using scripted::IsLoaded;
using testing::ElementsAre;
using testing::IsEmpty;

CK_FUNCTION_LIST untouched_list;

class LoaderTest : public scripted::P11Test {
 protected:
  void TearDown() override { EXPECT_THAT(Log(), IsEmpty()) << "the loader logs nothing"; }

  void* Load(const char* path) {
    CapturedOutput out(1);
    CapturedOutput err(2);
    void* module = C_LoadModule(path, &list_);
    stderr_ = err.Text();
    EXPECT_EQ(out.Text(), "");
    return module;
  }
  CK_RV Unload(void* module) {
    CapturedOutput out(1);
    CapturedOutput err(2);
    const CK_RV rv = C_UnloadModule(module);
    EXPECT_EQ(err.Text(), "");
    EXPECT_EQ(out.Text(), "");
    return rv;
  }

  CK_FUNCTION_LIST* list_ = &untouched_list;
  std::string stderr_;
};

TEST_F(LoaderTest, FailedAllocationSaysNothing) {
  wrapped::calls().fail_calloc = 1;
  EXPECT_EQ(Load(SCRIPTED_MODULE_PATH), nullptr);
  EXPECT_EQ(stderr_, "");
  EXPECT_EQ(wrapped::calls().dlopen_count, 0u);
}

TEST_F(LoaderTest, NullPathFreesTheRecordAndSaysNothing) {
  EXPECT_EQ(Load(nullptr), nullptr);
  EXPECT_EQ(stderr_, "");
  EXPECT_EQ(wrapped::calls().dlopen_count, 0u);
  ASSERT_EQ(wrapped::calls().calloc_count, 1u);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
}

// The linker may take it for the program itself, which is no module.
TEST_F(LoaderTest, EmptyPathIsAPathLikeAnyOther) {
  EXPECT_EQ(Load(""), nullptr);
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
}

TEST_F(LoaderTest, FileThatIsNoLibraryGivesTheLinkersReason) {
  const kelvrin::TemporaryFolder folder;
  const std::string file = folder.Write(
      "no-library", "this is text and no library, and long enough to be looked at closely");
  const char* path = file.c_str();
  ASSERT_EQ(dlopen(path, RTLD_LAZY), nullptr);
  const std::string reason = dlerror();
  wrapped::Reset();
  EXPECT_EQ(Load(path), nullptr);
  EXPECT_EQ(stderr_, "kvdl_dlopen failed: " + reason + "\n");
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
  EXPECT_EQ(list_, &untouched_list);
}

TEST_F(LoaderTest, MissingFileGivesTheLinkersReason) {
  EXPECT_EQ(Load("/nowhere/module.so"), nullptr);
  EXPECT_EQ(stderr_,
            "kvdl_dlopen failed: /nowhere/module.so: cannot open shared object file: No such file "
            "or directory\n");
}

TEST_F(LoaderTest, LibraryWithoutTheSymbolStaysOpenWithoutAWord) {
  EXPECT_EQ(Load(SCRIPTED_NO_FUNCTION_LIST_PATH), nullptr);
  EXPECT_EQ(stderr_, "");
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
  EXPECT_EQ(list_, &untouched_list);
  EXPECT_TRUE(IsLoaded(SCRIPTED_NO_FUNCTION_LIST_PATH));
}

TEST_F(LoaderTest, FailedFunctionListClosesTheLibraryAndLeavesTheLineUnfinished) {
  EXPECT_EQ(Load(SCRIPTED_FAILING_PATH), nullptr);
  EXPECT_EQ(stderr_, "C_GetFunctionList failed 2closed") << "the module itself says \"closed\"";
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
  EXPECT_EQ(wrapped::calls().dlclose_library, wrapped::calls().dlopen_result);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
  EXPECT_FALSE(IsLoaded(SCRIPTED_FAILING_PATH));
}

TEST_F(LoaderTest, FailedFunctionListShowsAllOfTheResult) {
  EXPECT_EQ(Load(SCRIPTED_FAILING_WIDE_PATH), nullptr);
  EXPECT_EQ(stderr_, "C_GetFunctionList failed abcdef01234closed");
}

TEST_F(LoaderTest, FailedFunctionListAndFailedCloseStillFreeTheRecord) {
  wrapped::calls().fake_dlclose = true;
  wrapped::calls().dlclose_result = -1;
  EXPECT_EQ(Load(SCRIPTED_FAILING_PATH), nullptr);
  EXPECT_EQ(stderr_, "C_GetFunctionList failed 2");
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
  void* const library = wrapped::calls().dlopen_result;
  wrapped::Reset();
  EXPECT_TRUE(IsLoaded(SCRIPTED_FAILING_PATH));
  CapturedOutput err(2);
  EXPECT_EQ(dlclose(library), 0);
}

TEST_F(LoaderTest, LoadsLazilyAndHandsOutTheModulesList) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  wrapped::Reset();
  void* module = Load(SCRIPTED_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(stderr_, "");
  EXPECT_EQ(list_, control->functions());
  EXPECT_EQ(wrapped::calls().dlopen_count, 1u);
  EXPECT_EQ(wrapped::calls().dlopen_mode, 1);
  EXPECT_EQ(wrapped::calls().dlsym_count, 1u);
  EXPECT_STREQ(wrapped::calls().dlsym_name, "C_GetFunctionList");
  EXPECT_EQ(wrapped::calls().dlsym_library, wrapped::calls().dlopen_result);
  EXPECT_THAT(control->Names(), ElementsAre("C_GetFunctionList"));
  EXPECT_EQ(control->At(Function::C_GetFunctionList).arguments[0].address, &list_);
  EXPECT_EQ(Unload(module), CKR_OK);
}

TEST_F(LoaderTest, ModuleWithAnUnresolvedFunctionLoads) {
  void* module = Load(SCRIPTED_UNRESOLVED_PATH);
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(list_, nullptr);
  EXPECT_EQ(Unload(module), CKR_OK);
}

TEST_F(LoaderTest, RecordIsOneZeroFilledAllocationThatBeginsWithTheMagic) {
  void* module = Load(SCRIPTED_UNRESOLVED_PATH);
  ASSERT_NE(module, nullptr);
  ASSERT_EQ(wrapped::calls().calloc_count, 1u);
  EXPECT_EQ(wrapped::calls().callocs[0].address, module);
  EXPECT_EQ(wrapped::calls().callocs[0].count * wrapped::calls().callocs[0].size, 16u);
  EXPECT_EQ(*static_cast<const uint32_t*>(module), 0xD00BED00u);
  EXPECT_EQ(Unload(module), CKR_OK);
}

TEST_F(LoaderTest, UnloadClosesTheLibraryFreesTheRecordAndFinalizesNothing) {
  scripted::ModuleControl control(SCRIPTED_MODULE_PATH);
  wrapped::Reset();
  void* module = Load(SCRIPTED_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(Unload(module), CKR_OK);
  EXPECT_EQ(wrapped::calls().dlclose_count, 1u);
  EXPECT_EQ(wrapped::calls().dlclose_library, wrapped::calls().dlopen_result);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
  EXPECT_THAT(control->Names(), ElementsAre("C_GetFunctionList"));
}

TEST_F(LoaderTest, UnloadDoesNotClearTheMagicFirst) {
  void* module = Load(SCRIPTED_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(Unload(module), CKR_OK);
  EXPECT_EQ(wrapped::calls().callocs[0].start, 0xD00BED00u);
}

TEST_F(LoaderTest, UnloadedLibraryIsGone) {
  void* module = Load(SCRIPTED_MODULE_PATH);
  ASSERT_NE(module, nullptr);
  EXPECT_TRUE(IsLoaded(SCRIPTED_MODULE_PATH));
  EXPECT_EQ(Unload(module), CKR_OK);
  EXPECT_FALSE(IsLoaded(SCRIPTED_MODULE_PATH));
}

TEST_F(LoaderTest, UnloadRefusesNull) { EXPECT_EQ(Unload(nullptr), CKR_ARGUMENTS_BAD); }

TEST_F(LoaderTest, UnloadRefusesARecordWithoutTheMagicAndFreesNothing) {
  uint64_t record[2] = {};
  EXPECT_EQ(Unload(record), CKR_ARGUMENTS_BAD);
  record[0] = 0xD00BED01;
  EXPECT_EQ(Unload(record), CKR_ARGUMENTS_BAD);
  record[0] = 0x00ED0BD0;
  EXPECT_EQ(Unload(record), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
}

TEST_F(LoaderTest, FailedUnloadKeepsTheRecordAndMayBeRepeated) {
  void* module = Load(SCRIPTED_UNRESOLVED_PATH);
  ASSERT_NE(module, nullptr);
  wrapped::calls().fake_dlclose = true;
  wrapped::calls().dlclose_result = -1;
  EXPECT_EQ(Unload(module), CKR_FUNCTION_FAILED);
  EXPECT_FALSE(wrapped::calls().callocs[0].freed);
  EXPECT_EQ(*static_cast<const uint32_t*>(module), 0xD00BED00u);
  wrapped::calls().fake_dlclose = false;
  EXPECT_EQ(Unload(module), CKR_OK);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
}

TEST_F(LoaderTest, OnlyANegativeAnswerToCloseIsAFailure) {
  void* module = Load(SCRIPTED_UNRESOLVED_PATH);
  ASSERT_NE(module, nullptr);
  wrapped::calls().fake_dlclose = true;
  wrapped::calls().dlclose_result = 1;
  EXPECT_EQ(Unload(module), CKR_OK);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
}

TEST_F(LoaderTest, RecordWithoutLibraryIsFreedWithoutClosing) {
  // As a load leaves it while it fails.
  auto* record = static_cast<uint64_t*>(calloc(2, sizeof(uint64_t)));
  record[0] = 0xFFFFFFFFD00BED00;  // the magic has 32 bits
  EXPECT_EQ(Unload(record), CKR_OK);
  EXPECT_EQ(wrapped::calls().dlclose_count, 0u);
  EXPECT_TRUE(wrapped::calls().callocs[0].freed);
}

}  // namespace
