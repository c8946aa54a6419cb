#include "tests/macos/load_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(LoadCommandsTest, FindsAMissingSlice) {
  SpoiledCopy copy(Extension().path);
  copy.bytes()[7] = 1;  // the number of slices
  EXPECT_THAT(CheckSlices(copy.Open()), ElementsAre("slices: expected x86_64, arm64, got x86_64"));
}

TEST(LoadCommandsTest, FindsASliceWithoutTheOther) {
  SpoiledCopy copy(Extension().path);
  copy.bytes().erase(0, copy.Begin("arm64"));
  EXPECT_THAT(CheckSlices(copy.Open()), ElementsAre("slices: expected x86_64, arm64, got arm64"));
}

TEST(LoadCommandsTest, FindsAnotherFileType) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Begin("arm64") + 12, llvm::MachO::MH_BUNDLE);
  EXPECT_THAT(CheckHeader(copy.Open(), Extension()),
              ElementsAre("arm64: file type: expected 2, got 8"));
}

TEST(LoadCommandsTest, FindsOneLevelNames) {
  SpoiledCopy copy(Extension().path);
  const size_t flags = copy.Begin("x86_64") + 24;
  copy.PutWord(flags, copy.Word(flags) & ~llvm::MachO::MH_TWOLEVEL);
  EXPECT_THAT(CheckHeader(copy.Open(), Extension()),
              ElementsAre("x86_64: flags: expected 2097285, got 2097157"));
}

TEST(LoadCommandsTest, FindsEachFlagThatIsMissingOrOneTooMany) {
  namespace macho = llvm::MachO;
  for (const uint32_t flag : {macho::MH_NOUNDEFS, macho::MH_DYLDLINK, macho::MH_PIE,
                              macho::MH_ALLOW_STACK_EXECUTION, macho::MH_FORCE_FLAT}) {
    SpoiledCopy copy(Extension().path);
    const size_t flags = copy.Begin("arm64") + 24;
    copy.PutWord(flags, copy.Word(flags) ^ flag);
    EXPECT_THAT(
        CheckHeader(copy.Open(), Extension()),
        ElementsAre("arm64: flags: expected 2097285, got " + std::to_string(2097285 ^ flag)));
  }
}

TEST(LoadCommandsTest, FindsAnotherMinimumSystem) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("x86_64", llvm::MachO::LC_BUILD_VERSION) + 12, 0x000a0f00);
  EXPECT_THAT(CheckBuildVersion(copy.Open()),
              ElementsAre("x86_64: build version: expected macos 10.14.6 sdk 14.5.0, "
                          "got macos 10.15.0 sdk 14.5.0"));
}

TEST(LoadCommandsTest, FindsAnotherSdk) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_BUILD_VERSION) + 16, 0x000b0000);
  EXPECT_THAT(CheckBuildVersion(copy.Open()),
              ElementsAre("arm64: build version: expected macos 11.0.0 sdk 14.5.0, "
                          "got macos 11.0.0 sdk 11.0.0"));
}

TEST(LoadCommandsTest, FindsAnotherPlatform) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_BUILD_VERSION) + 8, llvm::MachO::PLATFORM_IOS);
  EXPECT_THAT(CheckBuildVersion(copy.Open()),
              ElementsAre(HasSubstr("got platform 2 11.0.0 sdk 14.5.0")));
}

TEST(LoadCommandsTest, FindsSwappedRunPaths) {
  SpoiledCopy copy(Extension().path);
  const size_t first = copy.Command("x86_64", llvm::MachO::LC_RPATH, 0);
  const size_t second = copy.Command("x86_64", llvm::MachO::LC_RPATH, 1);
  const size_t size = copy.Word(second + 4);
  ASSERT_EQ(first + copy.Word(first + 4), second);  // they are neighbours
  copy.bytes().insert(first, copy.bytes().substr(second, size)).erase(second + size, size);
  EXPECT_THAT(CheckRunPaths(copy.Open(), Extension()),
              ElementsAre("x86_64: run paths: expected @executable_path/../Frameworks, "
                          "@executable_path/../../../../Frameworks, got "
                          "@executable_path/../../../../Frameworks, "
                          "@executable_path/../Frameworks"));
}

TEST(LoadCommandsTest, FindsThatARunPathIsMissing) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_RPATH, 1), 0x7f);  // a command nobody knows
  EXPECT_THAT(CheckRunPaths(copy.Open(), Extension()),
              ElementsAre("arm64: run paths: expected @executable_path/../Frameworks, "
                          "@executable_path/../../../../Frameworks, got "
                          "@executable_path/../Frameworks"));
}

TEST(LoadCommandsTest, FindsARunPathThatShouldNotBe) {
  EXPECT_THAT(CheckRunPaths(SpoiledCopy(Extension().path).Open(), Application()),
              ElementsAre(HasSubstr("x86_64: run paths: expected none, got @executable_path"),
                          HasSubstr("arm64: run paths: expected none, got @executable_path")));
}

TEST(LoadCommandsTest, FindsAnotherLibrary) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "Cocoa.framework/Versions/A/Cocoa", "Cacao.framework/Versions/A/Cacao");
  EXPECT_THAT(CheckLibraries(copy.Open(), Extension()),
              ElementsAre(HasSubstr("Frameworks/Cacao.framework/Versions/A/Cacao 1.0.0")));
}

TEST(LoadCommandsTest, FindsAnotherCompatibilityVersion) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_LOAD_DYLIB, 2) + 20, 301U << 16);
  EXPECT_THAT(CheckLibraries(copy.Open(), Extension()),
              ElementsAre(HasSubstr("Foundation.framework/Versions/C/Foundation 301.0.0")));
}

TEST(LoadCommandsTest, FindsALibraryThatMayBeMissing) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("x86_64", llvm::MachO::LC_LOAD_DYLIB), llvm::MachO::LC_LOAD_WEAK_DYLIB);
  EXPECT_THAT(CheckLibraries(copy.Open(), Extension()),
              ElementsAre(HasSubstr("Versions/A/CryptoTokenKit 1.0.0 (weak)")));
}

TEST(LoadCommandsTest, FindsLibrariesInAnotherOrder) {
  Binary expected = Extension();
  std::swap(expected.libraries[0], expected.libraries[1]);
  EXPECT_THAT(CheckLibraries(MachOFile(expected.path), expected),
              ElementsAre(HasSubstr("x86_64: libraries: expected /System/Library/Frameworks/Cocoa"),
                          HasSubstr("arm64: libraries: expected /System/Library/Frameworks/Coc")));
}

TEST(LoadCommandsTest, FindsAnotherInstallName) {
  SpoiledCopy copy(Adapter().path);
  copy.Replace("arm64", "@rpath/lib", "@wrong/lib");
  EXPECT_THAT(CheckInstallName(copy.Open(), Adapter()),
              ElementsAre("arm64: install name: expected @rpath/libkelvrin_adapter.dylib, "
                          "got @wrong/libkelvrin_adapter.dylib"));
}

}  // namespace
}  // namespace kelvrin::macos
