#include "modulecheck/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/temporary_folder.h"

namespace kelvrin::modulecheck {
namespace {

namespace fs = std::filesystem;

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(FilesTest, FilesAndFoldersAreToldApart) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("file", "text");
  fs::create_symlink(file, folder / "link");
  EXPECT_TRUE(Exists(file) && IsFile(file) && !IsFolder(file));
  EXPECT_TRUE(Exists(folder / "link") && IsFile(folder / "link"));
  EXPECT_TRUE(Exists(folder.path()) && IsFolder(folder.path()) && !IsFile(folder.path()));
  EXPECT_FALSE(Exists(folder / "missing") || IsFile(folder / "missing"));
}

TEST(FilesTest, PathsAreTakenApart) {
  EXPECT_EQ(ParentOf("/a/b"), "/a");
  EXPECT_EQ(ParentOf("/a"), "/");
  EXPECT_EQ(NameOf("/a/b"), "b");
  EXPECT_EQ(NameOf("b"), "b");
}

TEST(FilesTest, PathsAreSeenFromTheWorkingFolder) {
  EXPECT_EQ(AbsolutePath("/a"), "/a");
  EXPECT_EQ(AbsolutePath("a"), fs::current_path().string() + "/a");
}

TEST(FilesTest, LinksAreFollowed) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("file", "text");
  fs::create_symlink(file, folder / "link");
  EXPECT_EQ(RealPath(folder / "link"), fs::canonical(file).string());
  EXPECT_EQ(RealPath(folder / "missing"), "");
}

TEST(FilesTest, ACopyHasTheBytesAndIsForTheUserAlone) {
  const TemporaryFolder folder;
  const std::string text = std::string(200'000, 'x') + '\0' + "end";
  const std::string file = folder.Write("file", text);
  EXPECT_EQ(CopyFile(file, folder / "copy"), "");
  EXPECT_EQ(Contents(folder / "copy"), text);
  struct stat facts = {};
  ASSERT_EQ(stat((folder / "copy").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & (S_IRWXG | S_IRWXO), 0U);
}

TEST(FilesTest, ACopyThatFailsSaysWhyAndReplacesNothing) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("file", "text");
  const std::string other = folder.Write("other", "other");
  EXPECT_EQ(CopyFile(folder / "missing", folder / "copy"), "No such file or directory");
  EXPECT_EQ(CopyFile(file, other), "File exists");
  EXPECT_EQ(Contents(other), "other");
  EXPECT_EQ(CopyFile(file, folder / "missing/copy"), "No such file or directory");
}

}  // namespace
}  // namespace kelvrin::modulecheck
