#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/import_checks.h"
#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::string_literals;

const std::map<std::string, LinkStub>& Stubs() {
  static const auto stubs = ReadLinkStubs(KELVRIN_SOURCE "/platform/macos/sdk", KELVRIN_MACOS_SDK);
  return stubs;
}

std::string List(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST(ImportsTest, FindsASymbolOutsideTheStubs) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "_dlsym\0"s, "_dlsyn\0"s);
  EXPECT_THAT(CheckImportsAreInStubs(copy.Open(), Stubs()),
              ElementsAre("arm64: the stub of /usr/lib/libSystem.B.dylib does not export _dlsyn"));
}

TEST(ImportsTest, FindsALibraryWithoutAStub) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("x86_64", "CryptoTokenKit.framework/", "CryptoTokenKid.framework/");
  EXPECT_THAT(CheckImportsAreInStubs(copy.Open(), Stubs()),
              AllOf(Contains("x86_64: _TKErrorDomain is of /System/Library/Frameworks/"
                             "CryptoTokenKid.framework/Versions/A/CryptoTokenKit, "
                             "which has no stub"),
                    Each(HasSubstr("CryptoTokenKid"))));
}

TEST(ImportsTest, FindsASymbolOfTheWrongLibrary) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "/usr/lib/libobjc.A.dylib", "/usr/lib/libc++.1.dylib\0"s);
  EXPECT_THAT(
      CheckImportsAreInStubs(copy.Open(), Stubs()),
      AllOf(Contains("arm64: the stub of /usr/lib/libc++.1.dylib does not export _objc_msgSend"),
            Each(HasSubstr("arm64: the stub of /usr/lib/libc++.1.dylib does not export"))));
}

TEST(ImportsTest, FindsTablesThatDiffer) {
  SpoiledCopy copy(Extension().path);
  // In the symbol table a name follows the one before it, in the bind tables an operation.
  copy.Replace("arm64", "\0_dlsym\0"s, "\0_dlsyn\0"s);
  EXPECT_THAT(
      CheckImportTables(copy.Open()),
      ElementsAre("arm64: bind tables: expected _dlsyn of /usr/lib/libSystem.B.dylib, got none",
                  "arm64: bind tables: expected no _dlsym of /usr/lib/libSystem.B.dylib"));
}

TEST(ImportsTest, FindsASymbolThatMayBeMissing) {
  SpoiledCopy copy(Extension().path);
  // The operation that sets a name has its flags in the lower half.
  copy.Replace("arm64", "\x40_dlsym\0"s, "\x41_dlsym\0"s);
  EXPECT_THAT(
      CheckImportTables(copy.Open()),
      ElementsAre("arm64: bind tables: expected _dlsym of /usr/lib/libSystem.B.dylib, got none",
                  "arm64: bind tables: expected no _dlsym of /usr/lib/libSystem.B.dylib "
                  "(may be missing)",
                  "arm64: _dlsym may be missing"));
}

TEST(ImportsTest, FindsASharedNameThatNobodyDefines) {
  SpoiledCopy copy(Extension().path);
  const size_t info = copy.Command("arm64", llvm::MachO::LC_DYLD_INFO_ONLY);
  // A table of shared names takes the place of the exports: name, pointer, third segment, bind.
  const uint32_t place = copy.Word(info + 40);
  const std::string table = "\x40__Znwm\0\x51\x72\0\x90\0"s;
  ASSERT_LE(table.size(), copy.Word(info + 44));
  copy.bytes().replace(copy.Begin("arm64") + place, table.size(), table);
  copy.PutWord(info + 24, place);
  copy.PutWord(info + 28, static_cast<uint32_t>(table.size()));
  copy.PutWord(info + 40, 0);
  copy.PutWord(info + 44, 0);
  EXPECT_THAT(CheckImportTables(copy.Open()),
              ElementsAre("arm64: __Znwm is neither defined nor imported"));
  EXPECT_THAT(CheckNoCxxRuntime(copy.Open()),
              ElementsAre("arm64: __Znwm is shared with the C++ runtime"));
}

TEST(ImportsTest, RefusesAFileWithoutBindTables) {
  SpoiledCopy copy(Extension().path);
  copy.PutWord(copy.Command("arm64", llvm::MachO::LC_DYLD_INFO_ONLY), llvm::MachO::LC_DYLD_INFO);
  EXPECT_THROW(CheckImportTables(copy.Open()), std::runtime_error);
}

TEST(ImportsTest, FindsWhatTheListLacks) {
  const MachOFile file(Extension().path);
  auto lines = ImportLines(file);
  ASSERT_EQ(std::erase(lines, "libSystem.B.dylib _dlsym"), 1U);
  EXPECT_THAT(CheckImportList(file, List(lines)),
              ElementsAre("imports: expected no libSystem.B.dylib _dlsym"));
}

TEST(ImportsTest, FindsWhatOnlyTheListHas) {
  SpoiledCopy copy(Extension().path);
  const auto lines = ImportLines(copy.Open());
  copy.Replace("x86_64", "_dlsym\0"s, "_dlsyn\0"s);
  EXPECT_THAT(CheckImportList(copy.Open(), List(lines)),
              ElementsAre("imports: expected libSystem.B.dylib _dlsym, got none",
                          "imports: expected no libSystem.B.dylib _dlsym arm64",
                          "imports: expected no libSystem.B.dylib _dlsyn x86_64"));
}

TEST(ImportsTest, FindsAListThatIsNotSorted) {
  const MachOFile file(Extension().path);
  auto lines = ImportLines(file);
  std::swap(lines.front(), lines.back());
  EXPECT_THAT(CheckImportList(file, List(lines)), ElementsAre("the list is not sorted"));
}

TEST(ImportsTest, FindsALineThatIsTwiceInTheList) {
  const MachOFile file(Extension().path);
  auto lines = ImportLines(file);
  lines.push_back(lines.back());
  EXPECT_THAT(CheckImportList(file, List(lines)), ElementsAre("the list has a line twice"));
}

TEST(ImportsTest, FindsASymbolOfTheCxxRuntime) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "_dlsym\0"s, "__Znwm\0"s);
  EXPECT_THAT(CheckNoCxxRuntime(copy.Open()),
              ElementsAre("arm64: __Znwm of libSystem.B.dylib is of the C++ runtime"));
}

TEST(ImportsTest, FindsExceptionsAndUnwinding) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "_objc_release\0"s, "___cxa_rethro\0"s);
  copy.Replace("arm64", "_objc_retain\0"s, "__Unwind_Res\0"s);
  EXPECT_THAT(CheckNoCxxRuntime(copy.Open()),
              ElementsAre("arm64: __Unwind_Res of libobjc.A.dylib is of the C++ runtime",
                          "arm64: ___cxa_rethro of libobjc.A.dylib is of the C++ runtime"));
}

TEST(ImportsTest, FindsTheCxxLibrary) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("x86_64", "/usr/lib/libobjc.A.dylib", "/usr/lib/libc++.1.dylib\0"s);
  EXPECT_THAT(CheckNoCxxRuntime(copy.Open()),
              Contains("x86_64: _objc_msgSend of libc++.1.dylib is of the C++ runtime"));
}

TEST(ImportsTest, FindsWhatIsNewerThanMacOS1014) {
  SpoiledCopy copy(Extension().path);
  copy.Replace("arm64", "_objc_getProperty\0"s, "_objc_opt_respond\0"s);
  EXPECT_THAT(CheckImportsAreOldEnough(copy.Open()),
              ElementsAre("arm64: _objc_opt_respond: "
                          "the runtime's short cuts came with macOS 10.15"));
}

TEST(ImportsTest, KnowsWhatIsNewerThanMacOS1014) {
  for (const char* symbol : {
           "__ZNSt3__14__fs10filesystem8__statusERKNS1_4pathEPNS_10error_codeE",
           "__ZNSt3__122__libcpp_verbose_abortEPKcz",
           "__ZNSt3__18to_charsEPcS0_d",
           "__ZNSt3__16__itoa8__u64toaEyPc",
           "__ZNSt3__13pmr20get_default_resourceEv",
           "__ZNSt3__120__libcpp_atomic_waitEPVKvx",
           "__ZNSt3__123__cxx_atomic_notify_allEPVKv",
           "__ZNSt3__117bad_function_callD1Ev",
           "__ZTVNSt3__119basic_ostringstreamIcNS_11char_traitsIcEENS_9allocatorIcEEEE",
           "__ZTVNSt3__114basic_ifstreamIcNS_11char_traitsIcEEEE",
       }) {
    EXPECT_NE(NewerThanMacOS1014(symbol), "") << symbol;
  }
}

TEST(ImportsTest, KnowsWhatMacOS1014Has) {
  for (const char* symbol : {
           "__Znwm",
           "___cxa_throw",
           "__ZNSt3__112basic_stringIcNS_11char_traitsIcEENS_9allocatorIcEEE6appendEPKcm",
           "__ZNSt3__113basic_ostreamIcNS_11char_traitsIcEEE5flushEv",
           "__ZNSt3__115recursive_mutex4lockEv",
           "__ZTINSt3__18ios_baseE",
       }) {
    EXPECT_EQ(NewerThanMacOS1014(symbol), "") << symbol;
  }
}

TEST(ImportsTest, KnowsThatTheRestOfTheCxxStubIsOldEnough) {
  EXPECT_THAT(CheckStubIsOldEnough(Stubs().at("/usr/lib/libc++.1.dylib")), IsEmpty());
}

TEST(ImportsTest, FindsAStubWithWhatIsNewer) {
  LinkStub stub = Stubs().at("/usr/lib/libc++.1.dylib");
  stub.symbols["arm64"].insert("__ZNSt3__122__libcpp_verbose_abortEPKcz");
  EXPECT_THAT(CheckStubIsOldEnough(stub),
              ElementsAre("arm64: __ZNSt3__122__libcpp_verbose_abortEPKcz: "
                          "the handler of failed assertions came with macOS 13.4"));
}

}  // namespace
}  // namespace kelvrin::macos
