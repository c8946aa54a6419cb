#include "platform/macho/loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/linux/host/testing/text_files.h"
#include "platform/macho/testing/macho_files.h"

namespace macho::testing {
namespace {

using ::host::testing::TemporaryFolder;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(LoaderTest, AFileUnderTwoNamesIsOneImage) {
  const TemporaryFolder folder;
  const std::string other = folder / "other.dylib";
  std::filesystem::create_symlink(TestFile("library.dylib"), other);
  const Image* const image = Load(TestFile("library.dylib"));
  EXPECT_EQ(Load(other), image);
  EXPECT_EQ(Loaded(other), image);
  EXPECT_EQ(ImageOfHandle(image), image);
  EXPECT_EQ(ImageOfAddress(image->Export("_Count")), image);
}

TEST(LoaderTest, NothingIsFoundThatIsNotLoaded) {
  EXPECT_EQ(Loaded(TestFile("missing.dylib")), nullptr);
  EXPECT_EQ(ImageOfHandle(this), nullptr);
  EXPECT_EQ(ImageOfAddress(this), nullptr);
  EXPECT_EQ(Load(TestFile("library.dylib"))->Export("_Missing"), nullptr);
}

TEST(LoaderTest, InitialisersRunOnceAndLibrariesBesideItAreShared) {
  const Image* const user = Load(TestFile("user.dylib"));
  const Image* const library = Load(TestFile("library.dylib"));
  EXPECT_EQ(Function<int()>(*user, "InitialisedThere")(), 1);
  EXPECT_EQ(Function<int()>(*library, "Initialised")(), 1);
}

TEST(LoaderTest, EachThreadHasItsOwnThreadLocalVariables) {
  auto* const count = Function<int()>(*Load(TestFile("library.dylib")), "Count");
  const int first = count();
  EXPECT_EQ(count(), first + 1);
  int there = 0;
  std::thread([&] { there = count(); }).join();
  EXPECT_EQ(there, 41);
  EXPECT_EQ(count(), first + 2);
}

TEST(LoaderTest, AnExceptionPassesThreeFramesWithObjects) {
  auto* const catch_it =
      Function<void(const char*, char*, size_t)>(*Load(TestFile("library.dylib")), "Catch");
  char text[128] = "";
  const std::string longer_than_a_short_string(40, 'x');
  catch_it(longer_than_a_short_string.c_str(), text, sizeof(text));
  EXPECT_EQ(text, longer_than_a_short_string + "?!");
}

TEST(LoaderTest, CodeCannotBeWrittenAndDataNotRun) {
  const Image* const image = Load(TestFile("library.dylib"));
  std::ifstream maps("/proc/self/maps");
  const auto address = reinterpret_cast<uintptr_t>(image->start);
  std::string protection = "not mapped";
  for (std::string line; std::getline(maps, line);) {
    if (std::stoull(line, nullptr, 16) == address) protection = line.substr(line.find(' ') + 1, 4);
  }
  EXPECT_EQ(protection, "r-xp");
}

struct Odd {
  std::string name;
  std::string file;
  std::string says;

  friend void PrintTo(const Odd& odd, std::ostream* out) { *out << odd.file; }
};

class OddFileTest : public ::testing::TestWithParam<Odd> {};

TEST_P(OddFileTest, IsRefusedWithOneLine) {
  const std::string says = WhyNot(TestFile(GetParam().file));
  EXPECT_THAT(says, HasSubstr(GetParam().says));
  EXPECT_THAT(says, Not(HasSubstr("\n")));
}

INSTANTIATE_TEST_SUITE_P(
    Macho, OddFileTest,
    ::testing::Values(
        Odd{"SymbolThatMacosLacks", "nowhere.dylib",
            "_kelvrin_nowhere of libSystem: not in the table of what macOS exports"},
        Odd{"SymbolOfAnotherLibrary", "elsewhere.dylib",
            "___cxa_atexit of libc++: macOS does not export it there; its home is libsystem_c"},
        Odd{"FunctionThatNothingStandsFor", "unknown.dylib",
            "_pthread_self of libSystem: nothing stands for it"},
        Odd{"SymbolOfNoLibrary", "flat.dylib",
            "_kelvrin_nowhere is bound to no library of its list"},
        Odd{"ChainedFixups", "chained.dylib", "chained fixups are not supported"},
        Odd{"AnotherProcessor", "other.dylib", "no Mach-O slice for x86_64"},
        Odd{"NoFile", "missing.dylib", "No such file or directory"}),
    [](const auto& test) { return test.param.name; });

TEST(LoaderTest, AFileThatEndsTooEarlyIsRefused) {
  const TemporaryFolder folder;
  const std::string path = folder / "truncated.dylib";
  const auto whole = std::filesystem::file_size(TestFile("library.dylib"));
  for (const auto size : {whole / 2, whole / 4 * 3}) {
    std::filesystem::copy_file(TestFile("library.dylib"), path);
    std::filesystem::resize_file(path, size);
    EXPECT_THAT(WhyNot(path), HasSubstr("truncated or malformed")) << size;
    std::filesystem::remove(path);
  }
}

TEST(LoaderTest, ALibraryThatIsNotBesideItIsMissed) {
  const TemporaryFolder folder;
  std::filesystem::copy_file(TestFile("user.dylib"), folder / "user.dylib");
  EXPECT_THAT(WhyNot(folder / "user.dylib"),
              EndsWith("@rpath/library.dylib is in none of its folders"));
}

TEST(LoaderTest, ALibraryThatLacksASymbolIsNamed) {
  const TemporaryFolder folder;
  std::filesystem::copy_file(TestFile("user.dylib"), folder / "user.dylib");
  std::filesystem::copy_file(TestFile("plain.dylib"), folder / "library.dylib");
  EXPECT_THAT(WhyNot(folder / "user.dylib"), HasSubstr("_Initialised is not exported by " +
                                                       std::string(folder / "library.dylib")));
}

TEST(LoaderTest, APageThatIsNotWhatWasSignedIsRefused) {
  const TemporaryFolder folder;
  const std::string path = folder / "adapter.dylib";
  std::string bytes = ::host::testing::ReadText(KELVRIN_SIGNED);
  const size_t text = bytes.find("C_GetFunctionList");  // of the first slice, for x86_64
  ASSERT_NE(text, std::string::npos);
  bytes[text] = 'D';
  ::host::testing::WriteText(path, bytes);
  EXPECT_THAT(WhyNot(path), ::testing::ContainsRegex("page [0-9]+ is not what was signed"));
  EXPECT_EQ(WhyNot(KELVRIN_SIGNED), "");
}

TEST(LoaderTest, AFileThatIsNoMachOIsRefused) {
  EXPECT_THAT(WhyNot("/proc/self/exe"), HasSubstr("no Mach-O slice"));
}

}  // namespace
}  // namespace macho::testing
