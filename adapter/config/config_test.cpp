// The file beside the library, and the names of the rules in it.
#include "adapter/config/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>
#include <vector>

#include "adapter/config/setup_error.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Pairs = std::vector<std::pair<std::string, std::string>>;

class ConfigTest : public testing::Test {
 protected:
  Config Read(const std::string& contents) const {
    return ReadConfig(folder_.Write("libX.conf", contents));
  }
  // The line that a file is refused with, without the file's name.
  static std::string RefusalOf(const std::filesystem::path& file) {
    try {
      ReadConfig(file);
    } catch (const SetupError& error) {
      EXPECT_EQ(error.result(), CKR_GENERAL_ERROR);
      EXPECT_THAT(error.what(), StartsWith(file.string()));
      EXPECT_THAT(error.what(), Not(HasSubstr("\n")));
      return std::string(error.what()).substr(file.string().size());
    }
    return "accepted";
  }
  // Files with these contents are refused with these lines.
  void ExpectRefusals(const Pairs& files) const {
    for (const auto& [contents, line] : files) {
      EXPECT_EQ(RefusalOf(folder_.Write("libX.conf", contents)), line) << contents;
    }
  }

  TemporaryFolder folder_;
};

TEST(RulesTest, EachRuleHasANameOfItsOwnInTheOrderOfTheEnumeration) {
  std::set<std::string_view> names;
  std::size_t number = 0;
  for (const RuleName& entry : kRuleNames) {
    EXPECT_EQ(static_cast<std::size_t>(entry.rule), number++) << entry.name;
    EXPECT_TRUE(names.insert(entry.name).second) << entry.name;
    // A comma or a blank would part the name in the configuration.
    EXPECT_EQ(entry.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string_view::npos)
        << entry.name;
  }
}

// A pipe without a writer would keep a reader for ever.
TEST_F(ConfigTest, FileThatCannotBeReadIsNamedWithTheReasonAndACure) {
  const auto pipe = folder_ / "pipe.conf";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto loop = folder_ / "loop.conf";
  std::filesystem::create_symlink(loop, loop);
  const Pairs files = {
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
    EXPECT_EQ(RefusalOf(file), ": cannot be read (" + reason +
                                   "); make a text file of it with a line 'module = PATH' that "
                                   "names the PKCS#11 module");
  }
}

TEST_F(ConfigTest, LinesThatDoNotFitAreRefusedWithTheirNumberAndACure) {
  const std::string known =
      "; known keys are module, reserved, reader-name, any-reader, token-label, token-serial, "
      "card-number, rules-off";
  const std::string no_module =
      ": no key 'module' up to here; add a line 'module = PATH' that names the PKCS#11 module";
  const std::string no_equals = "; write 'key = value', or begin the line with #";
  ExpectRefusals({
      {"", ":1" + no_module},
      {"# only\nreserved = x\n", ":2" + no_module},
      {"module = m\nmodul = n\n", ":2: unknown key 'modul'" + known},
      {"Module = m\n", ":1: unknown key 'Module'" + known},
      {"\n\nmodule\n", ":3: no '=' in the line that begins with 'module'" + no_equals},
      // What follows the first word may be for the module's eyes only.
      {"reserved hidden\n", ":1: no '=' in the line that begins with 'reserved'" + no_equals},
      {"module =\n", ":1: no value for 'module'; write one, or remove the line"},
      {"reader-name = \t \n", ":1: no value for 'reader-name'; write one, or remove the line"},
      {"module = m\nmodule =", ":2: 'module' is given twice; remove one of the lines"},
      {"any-reader = Yes", ":1: 'any-reader' is 'Yes'; write yes or no"},
      {"card-number = Serial", ":1: 'card-number' is 'Serial'; write label or serial"},
      {"reserved = hidden\x01\n", ":1: control character in the value of 'reserved'; remove it"},
      {"reader-name = a\tb\n", ":1: control character in the value of 'reader-name'; remove it"},
      {"mod\xc2\x9bule = m\n", ":1: unknown key 'mod?ule'" + known},
      {"mod\x1bule = m\n", ":1: unknown key 'mod?ule'" + known},
      {std::string(65, 'k') + " = v", ":1: unknown key '" + std::string(64, 'k') + "...'" + known},
      {"\n\xef\xbb\xbfmodule = /m.so\n", ":2: unknown key '\xef\xbb\xbfmodule'" + known},
      {"module = m\nprofile = standard",
       ":2: the key 'profile' is gone; delete the line: the adapter serves the extension alone"},
      {"module = m\nslot-reader = Reader",
       ":2: the key 'slot-reader' is gone; delete the line, or write the text as 'reader-name'"},
  });
}

TEST_F(ConfigTest, RulesThatCannotBeSwitchedOffAreRefused) {
  const std::string comma =
      ":1: 'rules-off' lacks a name beside a comma; write the names with one comma between them";
  const std::string known =
      " in 'rules-off'; known rules are allowed-mechanisms, ec-usage, virtual-public-keys, ecdsa, "
      "raw-rsa, missing-raw-rsa, derivation, context-login, ascii-labels, oversize-certificates, "
      "keyed-certificates-first, keyless-certificates";
  const std::string off = "rules-off = ecdsa";
  ExpectRefusals({
      {off + ", ECDSA", ":1: unknown rule 'ECDSA'" + known},
      {off + " raw-rsa", ":1: unknown rule 'ecdsa raw-rsa'" + known},
      {off + ",raw-rsa , ecdsa", ":1: 'rules-off' names 'ecdsa' twice; remove one of them"},
      {"rules-off = ,", comma},
      {off + ",", comma},
      {"rules-off = ,ecdsa", comma},
      {off + ", ,raw-rsa", comma},
      {off + ",\x07\n", ":1: control character in the value of 'rules-off'; remove it"},
  });
  for (const std::string name :
       {"initialisation", "finished-searches", "worker-sessions", "failed-lengths", "one-slot",
        "search-memory", "renewed-handles"}) {
    ExpectRefusals({{off + ", " + name, ":1: the rule '" + name +
                                            "' always applies now; delete its name from "
                                            "'rules-off'"}});
  }
}

TEST_F(ConfigTest, NoKeyMayBeRepeated) {
  for (const std::string line :
       {"reserved = x", "reader-name = x", "any-reader = no", "token-label = x", "token-serial = x",
        "card-number = label", "rules-off = ecdsa"}) {
    const std::string key = line.substr(0, line.find(' '));
    ExpectRefusals(
        {{line + "\n" + line, ":2: '" + key + "' is given twice; remove one of the lines"}});
  }
}

TEST_F(ConfigTest, NulByteIsRefusedWhereverItStands) {
  for (std::string line : {"module = a?b", "mod?ule = a", "# ?", "?", "module?"}) {
    line[line.find('?')] = '\0';
    ExpectRefusals({{"\n" + line + "\nmodule = m\n",
                     ":2: the line has a NUL byte; save the file as plain text in UTF-8"}});
  }
}

TEST_F(ConfigTest, FileAndTextsOfExactlyTheLimitAreAccepted) {
  const std::string most = "module = m\n#" + std::string(64 * 1024 - 12, 'x');
  EXPECT_EQ(Read(most).module, folder_ / "m");
  ExpectRefusals(
      {{most + "x", ": has more than 64 KiB; keep only the lines that the adapter knows"}});
  const std::string reader(64, 'r');
  const std::string label(32, 'l');
  const std::string serial(16, 's');
  const Config config = Read("module = m\nreader-name = " + reader + "\ntoken-label = " + label +
                             "\ntoken-serial = " + serial);
  EXPECT_EQ(config.reader_name, reader);
  EXPECT_EQ(config.token_label, label);
  EXPECT_EQ(config.token_serial, serial);
  ExpectRefusals({
      {"reader-name = r" + reader, ":1: 'reader-name' has more than 64 bytes; shorten it"},
      {"token-label = l" + label, ":1: 'token-label' has more than 32 bytes; shorten it"},
      {"token-serial = s" + serial, ":1: 'token-serial' has more than 16 bytes; shorten it"},
  });
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
      "\xef\xbb\xbf# a comment\r\n"
      "  \t\r\n"
      "module=/opt/module.so\r\n"
      "reserved = configdir='sql:/tmp/x' flags= \r\n"
      "\treader-name =  Reader 00 00\r\n"
      "any-reader = yes\n"
      "token-label = 4711 0815\n"
      "card-number = serial\n"
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
}

TEST_F(ConfigTest, ModuleIsEnoughAndLiesBesideTheFileWhereItsPathIsRelative) {
  for (const char* more : {"", "\nany-reader = no\ncard-number = label"}) {
    const Config config = Read(std::string("module = sub/../m.so") + more);
    EXPECT_EQ(config.module, folder_.path() / "m.so");
    EXPECT_EQ(config.reserved + config.reader_name + config.token_label + config.token_serial, "");
    EXPECT_FALSE(config.any_reader);
    EXPECT_FALSE(config.serial_in_label);
    for (const RuleName& rule : kRuleNames) EXPECT_TRUE(config.rules.Has(rule.rule)) << rule.name;
  }
}

TEST(ConfigFileTest, FollowsTheLibrarysName) {
  EXPECT_EQ(ConfigFileOf("/a/libX.dylib"), "/a/libX.conf");
  EXPECT_EQ(ConfigFileOf("/a/b.c/libZ"), "/a/b.c/libZ.conf");
}

}  // namespace
}  // namespace kelvrin::adapter
