#import "app/view/Surroundings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "tests/temporary_folder.h"

namespace {

class SurroundingsTest : public testing::Test {
 protected:
  ~SurroundingsTest() override { [surroundings_ release]; }

  NSString *InFolder(const char *name) const {
    return [NSString stringWithUTF8String:(folder_.path() / name).c_str()];
  }

  const kelvrin::TemporaryFolder folder_;
  Surroundings *surroundings_ = [[Surroundings alloc] initWithGuide:@"/nowhere/macos.md"];
};

TEST_F(SurroundingsTest, WritesUtf8) {
  EXPECT_EQ([surroundings_ writeText:@"Prüfung\n" toPath:InFolder("report.txt")], nil);
  std::ifstream file(folder_.path() / "report.txt");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "Prüfung\n");
}

TEST_F(SurroundingsTest, SaysWhenAFileCouldNotBeWritten) {
  EXPECT_NE([surroundings_ writeText:@"" toPath:InFolder("missing/report.txt")], nil);
}

TEST_F(SurroundingsTest, CopiesForOtherPrograms) {
  [surroundings_ copyText:@"ssh-rsa AAAA"];
  EXPECT_TRUE([[[NSPasteboard generalPasteboard] stringForType:NSPasteboardTypeString]
      isEqualToString:@"ssh-rsa AAAA"]);
}

}  // namespace
