#include "tests/macos/exports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using namespace std::string_literals;

// Puts another table of exports into the extension's arm64 slice.
void PutTable(SpoiledCopy& copy, const std::string& table) {
  const size_t info = copy.Command("arm64", llvm::MachO::LC_DYLD_INFO_ONLY);
  ASSERT_LE(table.size(), copy.Word(info + 44));
  copy.bytes().replace(copy.Begin("arm64") + copy.Word(info + 40), table.size(), table);
}

TEST(ExportsTest, FindsAnExtraExport) {
  SpoiledCopy copy(Extension().path);
  // A node with two branches, and a leaf (two bytes: no flags, address 0) where both lead.
  PutTable(copy, "\0\2__mh_execute_header\0\x1ax\0\x1a\2\0\0\0"s);
  EXPECT_THAT(CheckExports(copy.Open(), Extension()), ElementsAre("arm64: exports: expected no x"));
}

TEST(ExportsTest, FindsAnExportThatIsPassedOn) {
  SpoiledCopy copy(Extension().path);
  // The leaf: three bytes, the flag for it, library 1, no other name.
  PutTable(copy, "\0\1__mh_execute_header\0\x17\3\x8\1\0\0"s);
  EXPECT_THAT(CheckExports(copy.Open(), Extension()),
              ElementsAre("arm64: exports: expected __mh_execute_header, got none",
                          "arm64: exports: expected no __mh_execute_header (passed on)"));
}

TEST(ExportsTest, FindsAMissingExport) {
  SpoiledCopy copy(Adapter().path);
  copy.Replace("x86_64", "C_GetFunctionList\0"s, "C_GetFunctionLast\0"s);
  EXPECT_THAT(CheckExports(copy.Open(), Adapter()),
              ElementsAre("x86_64: exports: expected _C_GetFunctionList, got none",
                          "x86_64: exports: expected no _C_GetFunctionLast",
                          "x86_64: external symbols: expected _C_GetFunctionList, got none",
                          "x86_64: external symbols: expected no _C_GetFunctionLast"));
}

TEST(ExportsTest, FindsAnExtraExternalSymbol) {
  SpoiledCopy copy(Extension().path);
  // The last symbol, an undefined one, becomes one of the first section.
  const size_t table = copy.Command("x86_64", llvm::MachO::LC_SYMTAB);
  const size_t last =
      copy.Begin("x86_64") + copy.Word(table + 8) + 16 * (copy.Word(table + 12) - 1);
  copy.bytes()[last + 4] = 0x0f;  // defined in a section, external
  copy.bytes()[last + 5] = 1;
  EXPECT_THAT(CheckExports(copy.Open(), Extension()),
              ElementsAre(MatchesRegex("x86_64: external symbols: expected no [_a-zA-Z$]+")));
}

}  // namespace
}  // namespace kelvrin::macos
