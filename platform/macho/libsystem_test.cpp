// What the C library of macOS has otherwise, called from a Mach-O library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "platform/linux/host/testing/text_files.h"
#include "platform/macho/testing/macho_files.h"

namespace macho::testing {
namespace {

using ::host::testing::TemporaryFolder;

class LibSystemTest : public ::testing::Test {
 protected:
  template <typename F>
  F* Get(const char* name) {
    return Function<F>(*Load(TestFile("library.dylib")), name);
  }
};

TEST_F(LibSystemTest, ErrorsHaveMacosNumbers) {
  const TemporaryFolder folder;
  const std::string link = folder / "link";
  std::filesystem::create_symlink("/nowhere", link);
  EXPECT_EQ(Get<int(const char*)>("OpenError")(link.c_str()), 62) << "ELOOP";
  EXPECT_EQ(Get<int(const char*)>("OpenError")("/nowhere/at/all"), 2) << "ENOENT";
}

TEST_F(LibSystemTest, ErrnoKeepsWhatIsWrittenAndShowsWhatFails) {
  EXPECT_TRUE(Get<bool()>("ErrnoIsKept")());
}

TEST_F(LibSystemTest, MessagesAreThoseOfMacosNumbers) {
  auto* const message = Get<void(int, char*, size_t)>("Message");
  char text[64] = "";
  message(66, text, sizeof(text));
  EXPECT_STREQ(text, strerror(ENOTEMPTY));
  message(1, text, sizeof(text));
  EXPECT_STREQ(text, strerror(EPERM));
}

TEST_F(LibSystemTest, FilesAreMeasuredAndMade) {
  const TemporaryFolder folder;
  const std::string path = folder / "file";
  EXPECT_TRUE(Get<bool(const char*)>("IsWritten")(path.c_str()));
  EXPECT_FALSE(Get<bool(const char*)>("IsWritten")(path.c_str())) << "O_EXCL";
  EXPECT_EQ(Get<long long(const char*)>("SizeOf")(path.c_str()), 4);
  EXPECT_EQ(Get<long long(const char*)>("SizeOf")("/dev"), -1);
}

TEST_F(LibSystemTest, AnonymousMemoryIsMapped) { EXPECT_TRUE(Get<bool()>("RoomIsZero")()); }

TEST_F(LibSystemTest, LettersAreLetters) {
  auto* const is_letter = Get<bool(char)>("IsLetter");
  for (const char c : {'a', 'z', 'A', 'Z'}) EXPECT_TRUE(is_letter(c)) << c;
  for (const char c : {'0', ' ', '_', '\xe4'}) EXPECT_FALSE(is_letter(c)) << c;
}

TEST_F(LibSystemTest, StaticMutexesLock) {
  auto* const count = Get<int()>("CountUnderLock");
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(count(), 2);
}

TEST_F(LibSystemTest, LibrariesOfBothKindsAreOpened) {
  auto* const call = Get<int(const char*, const char*)>("Call");
  EXPECT_EQ(call("libc.so.6", "getpid"), getpid());
  EXPECT_EQ(call("libc.so.6", "no_such_function"), -1);
  EXPECT_EQ(call(TestFile("user.dylib").c_str(), "InitialisedThere"), 1);
  EXPECT_EQ(call(TestFile("nowhere.dylib").c_str(), "Use"), -1);
}

TEST_F(LibSystemTest, ALibraryKnowsItsPath) {
  char path[1024] = "";
  Get<void(char*, size_t)>("OwnPath")(path, sizeof(path));
  EXPECT_EQ(path, TestFile("library.dylib"));
}

TEST_F(LibSystemTest, SignalsHaveMacosNumbers) {
  EXPECT_EQ(Get<int()>("LastSignal")(), SIGUSR1) << "a handler gets the number of this system";
}

}  // namespace
}  // namespace macho::testing
