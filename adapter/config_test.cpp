#include "adapter/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "adapter/setup_error.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ConfigTest : public testing::Test {
 protected:
  std::filesystem::path Write(const std::string& contents) const {
    return folder_.Write("libX.conf", contents);
  }
  // The line that a file with these contents is refused with.
  std::string Refusal(const std::string& contents) const {
    const auto file = Write(contents);
    try {
      ReadConfig(file);
    } catch (const SetupError& error) {
      EXPECT_EQ(error.result(), CKR_GENERAL_ERROR);
      EXPECT_THAT(error.what(), StartsWith(file.string()));
      return std::string(error.what()).substr(file.string().size());
    }
    ADD_FAILURE() << "accepted";
    return "";
  }

  TemporaryFolder folder_;
};

TEST_F(ConfigTest, MissingFileIsNamedWithACure) {
  try {
    ReadConfig(folder_.path() / "none.conf");
    FAIL() << "accepted";
  } catch (const SetupError& error) {
    EXPECT_EQ(error.result(), CKR_GENERAL_ERROR);
    EXPECT_THAT(error.what(), HasSubstr("none.conf: cannot be read (No such file or directory)"));
    EXPECT_THAT(error.what(), HasSubstr("'module = PATH'"));
  }
}

TEST_F(ConfigTest, FolderInPlaceOfTheFileIsRefused) {
  EXPECT_THROW(ReadConfig(folder_.path()), SetupError);
}

TEST_F(ConfigTest, FileOfMoreThan64KiBIsRefused) {
  EXPECT_THAT(Refusal("module = m\n#" + std::string(64 * 1024, 'x')), HasSubstr("64 KiB"));
}

TEST_F(ConfigTest, EmptyFileLacksTheModule) {
  EXPECT_THAT(Refusal(""), StartsWith(":1: no key 'module'"));
}

TEST_F(ConfigTest, MissingModuleIsReportedAtTheEndOfTheFile) {
  EXPECT_THAT(Refusal("# only\nreserved = x\n"), StartsWith(":2: no key 'module'"));
}

TEST_F(ConfigTest, UnknownKeyIsNamedWithTheKnownOnes) {
  const std::string line = Refusal("module = m\nmodul = n\n");
  EXPECT_THAT(line, StartsWith(":2: unknown key 'modul'; known keys are module, reserved"));
}

TEST_F(ConfigTest, KeysAreCaseSensitive) {
  EXPECT_THAT(Refusal("Module = m\n"), StartsWith(":1: unknown key 'Module'"));
}

TEST_F(ConfigTest, LineWithoutEqualsSignIsRefused) {
  EXPECT_THAT(Refusal("\n\nmodule\n"), StartsWith(":3: no '=' in 'module'; write 'key = value'"));
}

TEST_F(ConfigTest, KeyWithoutValueIsRefused) {
  EXPECT_THAT(Refusal("module =\n"), StartsWith(":1: no value for 'module'"));
  EXPECT_THAT(Refusal("module = m\nreader-name = \t \n"), StartsWith(":2: no value for"));
}

TEST_F(ConfigTest, RepeatedKeyIsRefused) {
  EXPECT_THAT(Refusal("module = m\nreserved = a\nreserved = a\n"),
              StartsWith(":3: 'reserved' is given twice; remove one"));
}

TEST_F(ConfigTest, ControlCharactersAreRefusedAndNotShown) {
  EXPECT_THAT(Refusal("module = m\nreader-name = a\x1b[1mb\n"), StartsWith(":2: control"));
  EXPECT_THAT(Refusal(std::string("module = a\0b\n", 13)), StartsWith(":1: control"));
  EXPECT_THAT(Refusal("mod\x1bule = m\n"), StartsWith(":1: unknown key 'mod?ule'"));
}

TEST_F(ConfigTest, TooLongTextsAreRefused) {
  EXPECT_THAT(Refusal("module = m\nreader-name = " + std::string(65, 'r')),
              StartsWith(":2: 'reader-name' has more than 64 bytes"));
  EXPECT_THAT(Refusal("module = m\ntoken-label = " + std::string(33, 'l')),
              StartsWith(":2: 'token-label' has more than 32 bytes"));
  EXPECT_THAT(Refusal("module = m\ntoken-serial = " + std::string(17, 's')),
              StartsWith(":2: 'token-serial' has more than 16 bytes"));
}

TEST_F(ConfigTest, ReservedStringIsNeverShown) {
  EXPECT_THAT(Refusal("module = m\nreserved = hidden\x01\n"), Not(HasSubstr("hidden")));
}

TEST_F(ConfigTest, ReadsEveryKey) {
  const Config config =
      ReadConfig(Write("# a comment\r\n"
                       "  \t\r\n"
                       "module=/opt/module.so\r\n"
                       "reserved = configdir='sql:/tmp/x' flags= \r\n"
                       "\treader-name =  Reader 00 00\r\n"
                       "token-label = 4711 0815\n"
                       "token-serial = abc=1"));
  EXPECT_EQ(config.module, "/opt/module.so");
  EXPECT_EQ(config.module_line, 3);
  EXPECT_EQ(config.reserved, "configdir='sql:/tmp/x' flags=");
  EXPECT_EQ(config.reader_name, "Reader 00 00");
  EXPECT_EQ(config.token_label, "4711 0815");
  EXPECT_EQ(config.token_serial, "abc=1");
}

TEST_F(ConfigTest, ModuleIsEnough) {
  const Config config = ReadConfig(Write("module = /m.so"));
  EXPECT_TRUE(config.reserved.empty());
  EXPECT_TRUE(config.reader_name.empty());
  EXPECT_TRUE(config.token_label.empty());
  EXPECT_TRUE(config.token_serial.empty());
}

TEST_F(ConfigTest, RelativeModuleLiesBesideTheFile) {
  EXPECT_EQ(ReadConfig(Write("module = sub/../m.so")).module, folder_.path() / "m.so");
}

TEST_F(ConfigTest, TextsOfExactlyTheLimitAreAccepted) {
  const std::string name(64, 'r');
  EXPECT_EQ(ReadConfig(Write("module = m\nreader-name = " + name)).reader_name, name);
}

TEST(ConfigFileTest, FollowsTheLibrarysName) {
  EXPECT_EQ(ConfigFileOf("/a/libX.dylib"), "/a/libX.conf");
  EXPECT_EQ(ConfigFileOf("/a/b.c/libY.so"), "/a/b.c/libY.conf");
  EXPECT_EQ(ConfigFileOf("/a/b.c/libZ"), "/a/b.c/libZ.conf");
}

}  // namespace
}  // namespace kelvrin::adapter
