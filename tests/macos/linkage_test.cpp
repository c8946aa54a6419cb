// How the binaries of the macOS build are linked: nothing is found wrong with any of them. That
// each check finds what it is for, the tests beside it show on spoiled copies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "tests/macos/code_signature.h"
#include "tests/macos/entry.h"
#include "tests/macos/exports.h"
#include "tests/macos/import_checks.h"
#include "tests/macos/initialisers.h"
#include "tests/macos/load_commands.h"

namespace kelvrin::macos {
namespace {

using testing::IsEmpty;

class LinkageTest : public testing::TestWithParam<const char*> {
 protected:
  const Binary expected_ = ExpectedBinary(KELVRIN_MACOS_BUILD, GetParam());
  const MachOFile file_{expected_.path};
};

TEST_P(LinkageTest, HasBothSlices) { EXPECT_THAT(CheckSlices(file_), IsEmpty()); }

TEST_P(LinkageTest, HasItsFileType) { EXPECT_THAT(CheckHeader(file_, expected_), IsEmpty()); }

TEST_P(LinkageTest, BeginsWithItsEntry) { EXPECT_THAT(CheckEntry(file_, expected_), IsEmpty()); }

TEST_P(LinkageTest, RunsNothingBeforeItsEntryIfItMayNot) {
  if (!expected_.has_initialisers) {
    EXPECT_THAT(CheckNothingRunsBeforeTheEntry(file_), IsEmpty());
  } else {
    EXPECT_THAT(CheckNothingRunsBeforeTheEntry(file_), testing::Not(IsEmpty()));
  }
}

TEST_P(LinkageTest, RunsOnTheOldestSystems) { EXPECT_THAT(CheckBuildVersion(file_), IsEmpty()); }

TEST_P(LinkageTest, HasItsRunPaths) { EXPECT_THAT(CheckRunPaths(file_, expected_), IsEmpty()); }

TEST_P(LinkageTest, LoadsItsLibraries) { EXPECT_THAT(CheckLibraries(file_, expected_), IsEmpty()); }

TEST_P(LinkageTest, HasItsInstallName) {
  EXPECT_THAT(CheckInstallName(file_, expected_), IsEmpty());
}

TEST_P(LinkageTest, HasImportTablesThatAgree) { EXPECT_THAT(CheckImportTables(file_), IsEmpty()); }

TEST_P(LinkageTest, ImportsOnlyWhatTheStubsExport) {
  const auto stubs = ReadLinkStubs(KELVRIN_SOURCE "/platform/macos/sdk", KELVRIN_MACOS_SDK);
  EXPECT_THAT(CheckImportsAreInStubs(file_, stubs), IsEmpty());
}

TEST_P(LinkageTest, ImportsExactlyWhatItsListSays) {
  const std::string path = KELVRIN_SOURCE "/tests/macos/imports/" + expected_.name + ".txt";
  std::ifstream list(path);
  ASSERT_TRUE(list) << path << " is missing; macos_imports prints it";
  const std::string lines{std::istreambuf_iterator<char>(list), {}};
  EXPECT_THAT(CheckImportList(file_, lines), IsEmpty());
}

TEST_P(LinkageTest, ImportsTheCxxRuntimeOnlyIfItMay) {
  if (expected_.has_cxx_runtime) {
    EXPECT_THAT(CheckNoCxxRuntime(file_), testing::Not(IsEmpty()));
  } else {
    EXPECT_THAT(CheckNoCxxRuntime(file_), IsEmpty());
  }
}

TEST_P(LinkageTest, ImportsNothingNewerThanMacOS1014) {
  EXPECT_THAT(CheckImportsAreOldEnough(file_), IsEmpty());
}

TEST_P(LinkageTest, ExportsWhatItShould) { EXPECT_THAT(CheckExports(file_, expected_), IsEmpty()); }

TEST_P(LinkageTest, IsSignedPageByPage) { EXPECT_THAT(CheckCodeSignature(file_), IsEmpty()); }

INSTANTIATE_TEST_SUITE_P(Of, LinkageTest,
                         testing::Values("extension", "application", "adapter", "modulecheck"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
}  // namespace kelvrin::macos
