// What the comparison of two builds sees.
#include "tests/macos/same_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/temporary_folder.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class SameFoldersTest : public testing::Test {
 protected:
  SameFoldersTest() {
    fs::create_directories(folder_ / "one/sub");
    folder_.Write("one/sub/file", "bytes");
    fs::permissions(folder_ / "one/sub/file", static_cast<fs::perms>(0644));
    fs::create_symlink("sub/file", folder_ / "one/link");
    fs::copy(folder_ / "one", folder_ / "other",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  Findings Compare() const { return CompareFolders(folder_ / "one", folder_ / "other"); }

  const TemporaryFolder folder_;
};

TEST_F(SameFoldersTest, NothingDiffers) { EXPECT_THAT(Compare(), IsEmpty()); }

TEST_F(SameFoldersTest, AByteDiffers) {
  folder_.Write("other/sub/file", "bites");
  EXPECT_THAT(Compare(), ElementsAre("sub/file: differs at byte 1"));
}

TEST_F(SameFoldersTest, TheSizeDiffers) {
  folder_.Write("other/sub/file", "bytes and more");
  EXPECT_THAT(Compare(), ElementsAre("sub/file: expected 644 file of 5 bytes, got 644 file of 14 "
                                     "bytes"));
}

TEST_F(SameFoldersTest, TheModeDiffers) {
  fs::permissions(folder_ / "other/sub/file", static_cast<fs::perms>(0755));
  EXPECT_THAT(Compare(),
              ElementsAre("sub/file: expected 644 file of 5 bytes, got 755 file of 5 bytes"));
}

TEST_F(SameFoldersTest, OneIsMissing) {
  fs::remove(folder_ / "other/sub/file");
  EXPECT_THAT(Compare(), ElementsAre("sub/file: expected 644 file of 5 bytes, got none"));
}

TEST_F(SameFoldersTest, OneIsTooMuch) {
  fs::create_symlink("nowhere", folder_ / "other/more");
  EXPECT_THAT(Compare(), ElementsAre("more: expected none, got 777 link to nowhere"));
}

TEST_F(SameFoldersTest, ALinkGoesElsewhere) {
  fs::remove(folder_ / "other/link");
  fs::create_symlink("sub", folder_ / "other/link");
  EXPECT_THAT(Compare(), ElementsAre("link: expected 777 link to sub/file, got 777 link to sub"));
}

}  // namespace
}  // namespace kelvrin::macos
