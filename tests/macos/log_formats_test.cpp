// The formats of the log lines in the extension, and spoiled copies of it.
#include "tests/macos/log_formats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/macos/bundle.h"
#include "tests/macos/testing/bundle_copy.h"
#include "tests/macos/testing/spoiled_copy.h"
#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

std::filesystem::path Executable() {
  return Bundle(KELVRIN_MACOS_BUILD).extension() / "MacOS/KelvrinToken";
}
std::string List() { return ReadFile(KELVRIN_SOURCE "/tests/macos/log_formats.txt"); }
std::vector<LogFormat> Formats() { return FormatsOfExtension(KELVRIN_SOURCE); }

TEST(LogFormatsTest, SourcesHaveExactlyWhatIsListed) {
  EXPECT_THAT(CheckFormatList(Formats(), List()), IsEmpty());
}

TEST(LogFormatsTest, ExecutableHasExactlyThoseOfTheSources) {
  EXPECT_THAT(CheckLogSection(MachOFile(Executable()), Formats()), IsEmpty());
}

TEST(SpoiledLogFormatsTest, ALineThatTheSourcesLack) {
  std::vector<LogFormat> formats = Formats();
  const std::string line = ListLine(formats[0]);
  formats.erase(formats.begin());
  EXPECT_THAT(CheckFormatList(formats, List()),
              ElementsAre("sources: " + line + ": expected 1, got 0"));
}

TEST(SpoiledLogFormatsTest, ALineThatIsNotListed) {
  const std::string list = WithReplaced(List(), "token/TokenDriver.mm os_log \"\"\n", "");
  EXPECT_THAT(CheckFormatList(Formats(), list),
              ElementsAre("sources: token/TokenDriver.mm os_log \"\": expected 0, got 1"));
}

TEST(SpoiledLogFormatsTest, AnotherLetterInOneSlice) {
  SpoiledCopy copy(Executable());
  copy.Replace("arm64", std::string("Öff. Schl\xC3\xBCssel"), "Öff. Schl\xC3\xB6ssel");
  EXPECT_THAT(
      CheckLogSection(copy.Open(), Formats()),
      ElementsAre("arm64: section __TEXT,__oslogstring: \"Öff. Schlössel nicht gefunden.\": "
                  "expected 0, got 1",
                  "arm64: section __TEXT,__oslogstring: \"Öff. Schlüssel nicht gefunden.\": "
                  "expected 1, got 0"));
}

TEST(SpoiledLogFormatsTest, OneMore) {
  SpoiledCopy copy(Executable());
  copy.Replace("arm64", std::string("Signieren...\0", 13), std::string("Sign\0eren...\0", 13));
  EXPECT_THAT(
      CheckLogSection(copy.Open(), Formats()),
      ElementsAre("arm64: section __TEXT,__oslogstring: \"Sign\": expected 0, got 1",
                  "arm64: section __TEXT,__oslogstring: \"Signieren...\": expected 1, got 0",
                  "arm64: section __TEXT,__oslogstring: \"eren...\": expected 0, got 1"));
}

TEST(SpoiledLogFormatsTest, NoEmptyOne) {
  for (const std::string architecture : {"x86_64", "arm64"}) {
    SpoiledCopy copy(Executable());
    copy.Replace(architecture, std::string("aufgerufen.\0\0", 13),
                 std::string("aufgerufen.~\0", 13));
    EXPECT_THAT(CheckLogSection(copy.Open(), Formats()),
                testing::Contains(architecture +
                                  ": section __TEXT,__oslogstring: \"\": expected 1, got 0"));
  }
}

TEST(SpoiledLogFormatsTest, AnAlignedSection) {
  SpoiledCopy copy(Executable());
  const size_t header = copy.bytes().find("__oslogstring", copy.Begin("x86_64"));
  copy.PutWord(header + 52, 4);  // the power of two
  EXPECT_THAT(CheckLogSection(copy.Open(), Formats()),
              ElementsAre("x86_64: section __TEXT,__oslogstring is aligned"));
}

TEST(SpoiledLogFormatsTest, NoSection) {
  SpoiledCopy copy(Executable());
  copy.Replace("x86_64", "__oslogstring", "__oslogstrung");
  EXPECT_THAT(CheckLogSection(copy.Open(), Formats()),
              ElementsAre("x86_64: section __TEXT,__oslogstring is missing"));
}

TEST(FormatsOfSourceTest, ReadsLiterals) {
  const auto formats = FormatsOfSource("x.mm",
                                       "// os_log(a, \"comment\");\n"
                                       "os_log(f(a, b), \"one \" /* and */\n  \"zwei ü\\n\", c);\n"
                                       "char c = '\"'; os_log_with_type(a, b, \"\");\n"
                                       "if (os_log_type_enabled(a, b)) g(\"no\");");
  ASSERT_EQ(formats.size(), 2U);
  EXPECT_EQ(ListLine(formats[0]), "x.mm os_log \"one zwei ü\\n\"");
  EXPECT_EQ(ListLine(formats[1]), "x.mm os_log_with_type \"\"");
}

TEST(FormatsOfSourceTest, RefusesWhatIsNoLiteral) {
  for (const char* source : {"os_log(a, format);", "os_log(a, \"x\" PRIu64, b);", "os_log(a"}) {
    EXPECT_THAT([&] { FormatsOfSource("x.mm", source); },
                ThrowsMessage<std::runtime_error>("x.mm os_log with a format that is no literal"))
        << source;
  }
}

}  // namespace
}  // namespace kelvrin::macos
