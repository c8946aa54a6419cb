#include "tests/macos/entry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

// Moves the entry of a slice; where it was.
uint32_t MoveEntry(SpoiledCopy& copy, const std::string& architecture, uint32_t by) {
  const size_t entry = copy.Command(architecture, llvm::MachO::LC_MAIN) + 8;
  const uint32_t before = copy.Word(entry);
  copy.PutWord(entry, before + by);
  return before;
}

TEST(EntryTest, FindsTheStubOfAnotherSymbol) {
  SpoiledCopy copy(Extension().path);
  MoveEntry(copy, "x86_64", 6);  // the size of a stub
  MoveEntry(copy, "arm64", 12);
  EXPECT_THAT(
      CheckEntry(copy.Open(), Extension()),
      ElementsAre(
          MatchesRegex("x86_64: entry: expected the stub of _NSExtensionMain, got the stub of _.*"),
          MatchesRegex(
              "arm64: entry: expected the stub of _NSExtensionMain, got the stub of _.*")));
}

TEST(EntryTest, FindsAStubThatBelongsToAnotherSymbol) {
  SpoiledCopy copy(Extension().path);
  // All entries of the table of indirect symbols name the first symbol, which is no import.
  const size_t tables = copy.Command("arm64", llvm::MachO::LC_DYSYMTAB);
  const size_t begin = copy.Begin("arm64") + copy.Word(tables + 56);
  for (uint32_t entry = 0; entry < copy.Word(tables + 60); ++entry) {
    copy.PutWord(begin + 4 * entry, 0);
  }
  EXPECT_THAT(CheckEntry(copy.Open(), Extension()),
              ElementsAre("arm64: entry: expected the stub of _NSExtensionMain, "
                          "got the stub of __mh_execute_header"));
}

TEST(EntryTest, FindsTheMiddleOfAStub) {
  SpoiledCopy copy(Extension().path);
  MoveEntry(copy, "arm64", 4);
  EXPECT_THAT(CheckEntry(copy.Open(), Extension()),
              ElementsAre("arm64: entry: expected the stub of _NSExtensionMain, "
                          "got the middle of a stub"));
}

TEST(EntryTest, FindsAFunctionInPlaceOfAnImport) {
  EXPECT_THAT(CheckEntry(MachOFile(Application().path), Extension()),
              ElementsAre("x86_64: entry: expected the stub of _NSExtensionMain, "
                          "got a function of its own",
                          "arm64: entry: expected the stub of _NSExtensionMain, "
                          "got a function of its own"));
}

TEST(EntryTest, FindsAnImportInPlaceOfAFunction) {
  EXPECT_THAT(CheckEntry(MachOFile(Extension().path), Application()),
              ElementsAre("x86_64: entry: expected a function of its own, "
                          "got the stub of _NSExtensionMain",
                          "arm64: entry: expected a function of its own, "
                          "got the stub of _NSExtensionMain"));
}

TEST(EntryTest, FindsAFunctionOfAnotherName) {
  // The first symbol, the only one that is defined, moves to where the application begins.
  SpoiledCopy copy(Application().path);
  const size_t table = copy.Command("arm64", llvm::MachO::LC_SYMTAB);
  const size_t symbol = copy.Begin("arm64") + copy.Word(table + 8);
  const uint32_t entry = copy.Word(copy.Command("arm64", llvm::MachO::LC_MAIN) + 8);
  copy.PutWord(symbol + 8, copy.Word(symbol + 8) + entry);
  EXPECT_THAT(CheckEntry(copy.Open(), Application()),
              ElementsAre("arm64: entry: expected a function of its own, "
                          "got the function __mh_execute_header"));
}

TEST(EntryTest, FindsTheMiddleOfAFunction) {
  SpoiledCopy copy(Application().path);
  MoveEntry(copy, "arm64", 4);
  EXPECT_THAT(CheckEntry(copy.Open(), Application()),
              ElementsAre("arm64: entry: expected a function of its own, "
                          "got the middle of a function"));
}

TEST(EntryTest, FindsWhatIsNoCode) {
  SpoiledCopy copy(Application().path);
  const size_t data = copy.Section("x86_64", "__cstring") - copy.Begin("x86_64");
  const size_t entry = copy.Command("x86_64", llvm::MachO::LC_MAIN) + 8;
  copy.PutWord(entry, static_cast<uint32_t>(data));
  EXPECT_THAT(CheckEntry(copy.Open(), Application()),
              ElementsAre("x86_64: entry: expected a function of its own, got no code"));
}

TEST(EntryTest, FindsALibraryWithoutAnEntry) {
  EXPECT_THAT(CheckEntry(MachOFile(Adapter().path), Modulecheck()),
              ElementsAre("x86_64: entry: expected a function of its own, got none",
                          "arm64: entry: expected a function of its own, got none"));
}

}  // namespace
}  // namespace kelvrin::macos
