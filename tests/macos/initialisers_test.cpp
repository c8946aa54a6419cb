#include "tests/macos/initialisers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;

constexpr size_t kFlags = 64;  // within a section's header, which begins with its name

// Gives another type to the section with the list of classes.
Findings WithSectionOfType(const std::string& architecture, uint32_t type) {
  SpoiledCopy copy(Extension().path);
  const size_t header = copy.bytes().find("__objc_classlist", copy.Begin(architecture));
  copy.PutWord(header + kFlags, type);
  return CheckNothingRunsBeforeTheEntry(copy.Open());
}

TEST(InitialisersTest, FindsPointersToFunctions) {
  EXPECT_THAT(WithSectionOfType("arm64", llvm::MachO::S_MOD_INIT_FUNC_POINTERS),
              ElementsAre("arm64: expected no initialisers, got section __objc_classlist"));
}

TEST(InitialisersTest, FindsOffsetsOfFunctions) {
  EXPECT_THAT(WithSectionOfType("x86_64", llvm::MachO::S_INIT_FUNC_OFFSETS),
              ElementsAre("x86_64: expected no initialisers, got section __objc_classlist"));
}

TEST(InitialisersTest, FindsThoseOfThreads) {
  EXPECT_THAT(WithSectionOfType("arm64", llvm::MachO::S_THREAD_LOCAL_INIT_FUNCTION_POINTERS),
              ElementsAre("arm64: expected no initialisers, got section __objc_classlist"));
}

TEST(InitialisersTest, FindsClassesThatAreLoaded) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("x86_64", "__objc_classlist", "__objc_nlclslist");
  EXPECT_THAT(CheckNothingRunsBeforeTheEntry(copy.Open()),
              ElementsAre("x86_64: expected no initialisers, got section __objc_nlclslist"));
}

TEST(InitialisersTest, FindsCategoriesThatAreLoaded) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", std::string("__objc_catlist\0\0", 16), "__objc_nlcatlist");
  EXPECT_THAT(CheckNothingRunsBeforeTheEntry(copy.Open()),
              ElementsAre("arm64: expected no initialisers, got section __objc_nlcatlist"));
}

TEST(InitialisersTest, FindsTheRoutineOfALibrary) {
  SpoiledCopy copy(Extension().path);
  // The segment that keeps page zero is as long.
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_SEGMENT_64), llvm::MachO::LC_ROUTINES_64);
  EXPECT_THAT(CheckNothingRunsBeforeTheEntry(copy.Open()),
              ElementsAre("arm64: expected no initialisers, got LC_ROUTINES_64"));
}

// Where there may be some, they are seen: modulecheck's command line is built before its entry.
TEST(InitialisersTest, FindsThoseOfModulecheck) {
  EXPECT_THAT(CheckNothingRunsBeforeTheEntry(MachOFile(Modulecheck().path)),
              ElementsAre("x86_64: expected no initialisers, got section __mod_init_func",
                          "arm64: expected no initialisers, got section __mod_init_func"));
}

}  // namespace
}  // namespace kelvrin::macos
