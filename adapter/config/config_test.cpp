#include "adapter/config/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "adapter/config/setup_error.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kCure =
    "; make a text file of it with a line 'module = PATH' that names the PKCS#11 module";
const std::string kRules =
    "allowed-mechanisms, ec-usage, virtual-public-keys, ecdsa, raw-rsa, missing-raw-rsa, "
    "derivation, context-login, ascii-labels, oversize-certificates, keyed-certificates-first, "
    "keyless-certificates";

class ConfigTest : public testing::Test {
 protected:
  std::filesystem::path Write(const std::string& contents) const {
    return folder_.Write("libX.conf", contents);
  }
  Config Read(const std::string& contents) const { return ReadConfig(Write(contents)); }
  // The line that a file with these contents is refused with, without the file's name.
  std::string Refusal(const std::string& contents) const { return RefusalOf(Write(contents)); }
  static std::string RefusalOf(const std::filesystem::path& file) {
    try {
      ReadConfig(file);
    } catch (const SetupError& error) {
      EXPECT_EQ(error.result(), CKR_GENERAL_ERROR);
      EXPECT_THAT(error.what(), StartsWith(file.string()));
      EXPECT_THAT(error.what(), Not(HasSubstr("\n")));
      return std::string(error.what()).substr(file.string().size());
    }
    ADD_FAILURE() << "accepted";
    return "";
  }

  TemporaryFolder folder_;
};

// A pipe without a writer would keep a reader for ever.
TEST_F(ConfigTest, FileThatCannotBeReadIsNamedWithTheReasonAndACure) {
  const auto pipe = folder_ / "pipe.conf";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto loop = folder_ / "loop.conf";
  std::filesystem::create_symlink(loop, loop);
  const std::vector<std::pair<std::filesystem::path, std::string>> files = {
      {folder_ / "none.conf", "No such file or directory"},
      {loop, "Too many levels of symbolic links"},
      {folder_.path(), "Invalid argument"},
      {pipe, "Invalid argument"},
      {"/dev/zero", "Invalid argument"},
#ifdef __linux__
      {"/proc/self/mem", "Input/output error"},  // a regular file that fails when it is read
#endif
  };
  for (const auto& [file, reason] : files) {
    EXPECT_EQ(RefusalOf(file), ": cannot be read (" + reason + ")" + kCure);
  }
}

TEST_F(ConfigTest, FileOfMoreThan64KiBIsRefused) {
  const std::string most = "module = m\n#" + std::string(64 * 1024 - 12, 'x');
  EXPECT_EQ(Read(most).module, folder_ / "m");
  EXPECT_EQ(Refusal(most + "x"),
            ": has more than 64 KiB; keep only the lines that the adapter knows");
}

TEST_F(ConfigTest, LinesThatDoNotFitAreRefusedWithTheirNumberAndACure) {
  const std::string known =
      "; known keys are module, reserved, reader-name, any-reader, token-label, token-serial, "
      "card-number, rules-off";
  const std::string write_one = "; write one, or remove the line";
  const std::string comma =
      ":2: 'rules-off' lacks a name beside a comma; write the names with one comma between them";
  const std::string no_module =
      ": no key 'module' up to here; add a line 'module = PATH' that names the PKCS#11 module";
  const std::string no_equals = "; write 'key = value', or begin the line with #";
  const std::string off = "module = m\nrules-off = ";
  const std::vector<std::pair<std::string, std::string>> files = {
      {"", ":1" + no_module},
      {"# only\nreserved = x\n", ":2" + no_module},
      {"module = m\nmodul = n\n", ":2: unknown key 'modul'" + known},
      {"Module = m\n", ":1: unknown key 'Module'" + known},
      {"\n\nmodule\n", ":3: no '=' in the line that begins with 'module'" + no_equals},
      // What follows the first word may be for the module's eyes only.
      {"module = m\nreserved hidden\n",
       ":2: no '=' in the line that begins with 'reserved'" + no_equals},
      {"module =\n", ":1: no value for 'module'" + write_one},
      {"module = m\nreader-name = \t \n", ":2: no value for 'reader-name'" + write_one},
      {"module = m\nmodule = m", ":2: 'module' is given twice; remove one of the lines"},
      {"module = m\nmodule =", ":2: 'module' is given twice; remove one of the lines"},
      {"module = m\nany-reader = Yes", ":2: 'any-reader' is 'Yes'; write yes or no"},
      {"module = m\ncard-number = Serial", ":2: 'card-number' is 'Serial'; write label or serial"},
      {off + "ecdsa, ECDSA", ":2: unknown rule 'ECDSA' in 'rules-off'; known rules are " + kRules},
      {off + "ecdsa raw-rsa",
       ":2: unknown rule 'ecdsa raw-rsa' in 'rules-off'; known rules are " + kRules},
      {off + "ecdsa,raw-rsa , ecdsa", ":2: 'rules-off' names 'ecdsa' twice; remove one of them"},
      {off + ",", comma},
      {off + "ecdsa,", comma},
      {off + ",ecdsa", comma},
      {off + "ecdsa, ,raw-rsa", comma},
      {"module = m\nreader-name = " + std::string(65, 'r'),
       ":2: 'reader-name' has more than 64 bytes; shorten it"},
      {"module = m\ntoken-label = " + std::string(33, 'l'),
       ":2: 'token-label' has more than 32 bytes; shorten it"},
      {"module = m\ntoken-serial = " + std::string(17, 's'),
       ":2: 'token-serial' has more than 16 bytes; shorten it"},
      {"module = m\nreserved = hidden\x01\n",
       ":2: control character in the value of 'reserved'; remove it"},
      {"module = m\nreader-name = a\x1b[1mb\n",
       ":2: control character in the value of 'reader-name'; remove it"},
      {"module = m\nreader-name = a\tb\n",
       ":2: control character in the value of 'reader-name'; remove it"},
      {off + "ecdsa,\x07\n", ":2: control character in the value of 'rules-off'; remove it"},
      {"mod\xc2\x9bule = m\n", ":1: unknown key 'mod?ule'" + known},
      {"mod\x1bule = m\n", ":1: unknown key 'mod?ule'" + known},
      {std::string(65, 'k') + " = v", ":1: unknown key '" + std::string(64, 'k') + "...'" + known},
      {"\n\xef\xbb\xbfmodule = /m.so\n", ":2: unknown key '\xef\xbb\xbfmodule'" + known},
  };
  for (const auto& [contents, line] : files) EXPECT_EQ(Refusal(contents), line);
}

TEST_F(ConfigTest, NamesOfEarlierVersionsAreRefusedWithWhatToDelete) {
  EXPECT_EQ(Refusal("module = m\nprofile = standard"),
            ":2: the key 'profile' is gone; delete the line: the adapter serves the extension "
            "alone");
  EXPECT_EQ(Refusal("module = m\nslot-reader = Reader"),
            ":2: the key 'slot-reader' is gone; delete the line, or write the text as "
            "'reader-name'");
  for (const std::string name :
       {"initialisation", "finished-searches", "worker-sessions", "failed-lengths", "one-slot",
        "search-memory", "renewed-handles"}) {
    EXPECT_EQ(Refusal("module = m\nrules-off = ecdsa, " + name),
              ":2: the rule '" + name + "' always applies now; delete its name from 'rules-off'");
  }
}

TEST_F(ConfigTest, NoKeyMayBeRepeated) {
  for (const std::string line :
       {"reserved = x", "reader-name = x", "any-reader = no", "token-label = x", "token-serial = x",
        "card-number = label", "rules-off = ecdsa"}) {
    const std::string key = line.substr(0, line.find(' '));
    EXPECT_EQ(Refusal("module = m\n" + line + "\n" + line),
              ":3: '" + key + "' is given twice; remove one of the lines");
  }
}

TEST_F(ConfigTest, NulByteIsRefusedWhereverItStands) {
  for (const std::string place : {"module = a?b", "mod?ule = a", "# ?", "?", "module?"}) {
    std::string line = place;
    line[line.find('?')] = '\0';
    EXPECT_EQ(Refusal("\n" + line + "\nmodule = m\n"),
              ":2: the line has a NUL byte; save the file as plain text in UTF-8")
        << place;
  }
}

TEST_F(ConfigTest, EachRuleCanBeSwitchedOffAlone) {
  for (const RuleName& off : kRuleNames) {
    const Rules rules = Read("module = m\nrules-off = " + std::string(off.name)).rules;
    for (const RuleName& any : kRuleNames) {
      EXPECT_EQ(rules.Has(any.rule), any.rule != off.rule) << off.name << " " << any.name;
    }
  }
  const Rules rules = Read("rules-off = raw-rsa\t,  ecdsa\r\nmodule = m").rules;
  EXPECT_FALSE(rules.Has(Rule::kRawRsa));
  EXPECT_FALSE(rules.Has(Rule::kEcdsa));
}

TEST_F(ConfigTest, ReadsEveryKey) {
  const Config config = Read(
      "# a comment\r\n"
      "  \t\r\n"
      "module=/opt/module.so\r\n"
      "reserved = configdir='sql:/tmp/x' flags= \r\n"
      "\treader-name =  Reader 00 00\r\n"
      "any-reader = yes\n"
      "token-label = 4711 0815\n"
      "card-number = serial\n"
      "rules-off = raw-rsa\n"
      "token-serial = abc=1");
  EXPECT_EQ(config.file, (folder_ / "libX.conf").string());
  EXPECT_EQ(config.module, "/opt/module.so");
  EXPECT_EQ(config.module_line, 3);
  EXPECT_EQ(config.reserved, "configdir='sql:/tmp/x' flags=");
  EXPECT_EQ(config.reader_name, "Reader 00 00");
  EXPECT_TRUE(config.any_reader);
  EXPECT_EQ(config.token_label, "4711 0815");
  EXPECT_EQ(config.token_serial, "abc=1");
  EXPECT_TRUE(config.serial_in_label);
  EXPECT_FALSE(config.rules.Has(Rule::kRawRsa));
}

TEST_F(ConfigTest, ModuleIsEnoughAndDefaultsMayBeSpeltOut) {
  for (const char* more : {"", "\nany-reader = no\ncard-number = label"}) {
    const Config config = Read(std::string("module = /m.so") + more);
    EXPECT_EQ(config.reserved + config.reader_name + config.token_label + config.token_serial, "");
    EXPECT_FALSE(config.any_reader);
    EXPECT_FALSE(config.serial_in_label);
    for (const RuleName& rule : kRuleNames) EXPECT_TRUE(config.rules.Has(rule.rule)) << rule.name;
  }
}

TEST_F(ConfigTest, ByteOrderMarkInFrontIsSkipped) {
  EXPECT_EQ(Read("\xef\xbb\xbfmodule = /m.so\r\n").module, "/m.so");
}

TEST_F(ConfigTest, RelativeModuleLiesBesideTheFile) {
  EXPECT_EQ(Read("module = sub/../m.so").module, folder_.path() / "m.so");
}

TEST_F(ConfigTest, TextsOfExactlyTheLimitAreAccepted) {
  const Config config =
      Read("module = m\nreader-name = " + std::string(64, 'r') +
           "\ntoken-label = " + std::string(32, 'l') + "\ntoken-serial = " + std::string(16, 's'));
  EXPECT_EQ(config.reader_name, std::string(64, 'r'));
  EXPECT_EQ(config.token_label, std::string(32, 'l'));
  EXPECT_EQ(config.token_serial, std::string(16, 's'));
}

TEST(ConfigFileTest, FollowsTheLibrarysName) {
  EXPECT_EQ(ConfigFileOf("/a/libX.dylib"), "/a/libX.conf");
  EXPECT_EQ(ConfigFileOf("/a/b.c/libZ"), "/a/b.c/libZ.conf");
}

}  // namespace
}  // namespace kelvrin::adapter
