// The program, and what is preloaded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/host/testing/program.h"
#include "platform/macho/testing/macho_files.h"

namespace macho::testing {
namespace {

using ::host::testing::RunProgram;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(MachorunTest, RunsAProgramWithItsArguments) {
  const auto outcome = RunProgram({KELVRIN_MACHORUN, TestFile("program"), "one", "two words"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.output, "one\ntwo words\n");
}

TEST(MachorunTest, SaysInOneLineWhatCannotBeRun) {
  const auto library = RunProgram({KELVRIN_MACHORUN, TestFile("library.dylib")});
  EXPECT_EQ(library.status, 127);
  EXPECT_THAT(library.errors, HasSubstr("library.dylib: no program\n"));
  const auto classes = RunProgram({KELVRIN_MACHORUN, TestFile("classes.dylib")});
  EXPECT_EQ(classes.status, 127);
  EXPECT_THAT(classes.errors, HasSubstr("the program has no Objective-C runtime"));
  EXPECT_EQ(RunProgram({KELVRIN_MACHORUN}).status, 2);
}

TEST(MachorunTest, PreloadedItStartsProgramsOfMacos) {
  const auto outcome =
      RunProgram({"/usr/bin/env", std::string("LD_PRELOAD=") + KELVRIN_MACHO, "/bin/sh", "-c",
                  "'" + TestFile("program") + "' from a shell || echo $?"});
  EXPECT_EQ(outcome.output, "from\na\nshell\n4\n");
}

}  // namespace
}  // namespace macho::testing
