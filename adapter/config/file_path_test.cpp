#include "adapter/config/file_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

namespace fs = std::filesystem;

// Every path of up to four of these parts.
std::vector<std::string> ManyPaths() {
  std::vector<std::string> paths = {""};
  std::size_t begin = 0;
  for (int length = 1; length <= 4; ++length) {
    const std::size_t end = paths.size();
    for (; begin < end; ++begin) {
      for (const char* part : {"/", ".", "..", "a", "b.c"}) paths.push_back(paths[begin] + part);
    }
  }
  return paths;
}

// Works in a folder of its own.
class AbsolutePathTest : public testing::Test {
 protected:
  AbsolutePathTest() { fs::current_path(folder_.path()); }
  ~AbsolutePathTest() override { fs::current_path(before_); }
  // The reason that AbsolutePath gives for refusing the path; 0 when it does not.
  static int RefusalOf(const std::string& path) {
    try {
      AbsolutePath(path);
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  const fs::path before_ = fs::current_path();
  TemporaryFolder folder_;
};

TEST_F(AbsolutePathTest, RelativeOneBeginsAtTheWorkingFolderHoweverDeepThatLies) {
  for (const char* path : {"/", "/a", "/a/../b//c/", "//x"}) EXPECT_EQ(AbsolutePath(path), path);
  EXPECT_EQ(AbsolutePath("./a/../b"), fs::current_path().string() + "/./a/../b");
  for (int depth = 0; depth < 5; ++depth) {
    const std::string name(200, static_cast<char>('a' + depth));
    fs::create_directory(name);
    fs::current_path(name);
  }
  EXPECT_EQ(AbsolutePath("x"), fs::current_path().string() + "/x");
  fs::current_path("/");
  EXPECT_EQ(AbsolutePath("a"), "/a");
}

TEST_F(AbsolutePathTest, EmptyOneAndMissingWorkingFolderAreRefused) {
  EXPECT_EQ(RefusalOf(""), ENOENT);
  fs::create_directory("gone");
  fs::current_path("gone");
  ASSERT_EQ(rmdir((folder_ / "gone").c_str()), 0);
  EXPECT_EQ(RefusalOf("a"), ENOENT);
  EXPECT_EQ(AbsolutePath("/a"), "/a");
}

TEST(PathBesideTest, IsWhatTheStandardLibrarySays) {
  for (const std::string& path : ManyPaths()) {
    // Of these it keeps every slash.
    if (path.size() > 1 && path.find_first_not_of('/') == std::string::npos) continue;
    for (const std::string file : {"/f/g.h/i.conf", "/i.conf", "/f//./../g/i.conf"}) {
      const fs::path expected = (fs::path(file).parent_path() / path).lexically_normal();
      EXPECT_EQ(PathBeside(file, path), expected.string()) << file << " and '" << path << "'";
    }
  }
}

TEST(WithEndingTest, IsWhatTheStandardLibrarySays) {
  for (const std::string& path : ManyPaths()) {
    fs::path expected = path;
    expected.replace_extension(".conf");
    EXPECT_EQ(WithEnding(path, ".conf"), expected.string()) << "'" << path << "'";
  }
}

TEST(IsRegularFileTest, FoldersPipesDevicesAndMissingOnesAreNone) {
  const TemporaryFolder folder;
  const std::string file = folder.Write("file", "x").string();
  const std::string pipe = (folder / "pipe").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_symlink(file, folder / "link");
  EXPECT_TRUE(IsRegularFile(file));
  EXPECT_TRUE(IsRegularFile((folder / "link").string()));
  for (const std::string& other :
       {folder.path().string(), pipe, std::string("/dev/null"), (folder / "none").string()}) {
    EXPECT_FALSE(IsRegularFile(other)) << other;
  }
}

}  // namespace
}  // namespace kelvrin::adapter
