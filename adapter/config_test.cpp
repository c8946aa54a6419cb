#include "adapter/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "adapter/setup_error.h"
#include "tests/temporary_folder.h"

namespace kelvrin::adapter {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ConfigTest : public testing::Test {
 protected:
  std::filesystem::path Write(const std::string& contents) const {
    return folder_.Write("libX.conf", contents);
  }
  // The line that a file with these contents is refused with, without the file's name.
  std::string Refusal(const std::string& contents) const { return RefusalOf(Write(contents)); }
  static std::string RefusalOf(const std::filesystem::path& file) {
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

  // A value that the key takes.
  static std::string Example(const std::string& key) {
    if (key == "card-number") return "serial";
    if (key == "profile") return "standard";
    return key == "rules-off" ? "ecdsa" : "x";
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

TEST_F(ConfigTest, FileThatCannotBeReadIsNamedWithTheReasonAndACure) {
  EXPECT_THAT(RefusalOf(folder_.path()), AllOf(StartsWith(": cannot be read (Is a directory); "),
                                               HasSubstr("'module = PATH'")));
  const auto loop = folder_ / "loop.conf";
  std::filesystem::create_symlink(loop, loop);
  EXPECT_THAT(RefusalOf(loop), StartsWith(": cannot be read (Too many levels of symbolic links)"));
}

TEST_F(ConfigTest, EveryRefusalIsOneLine) {
  for (const char* contents : {"", "x", "x = y", "module =", "module = a\rb",
                               "module = m\nmodule = m", "module = m\nrules-off = a,",
                               "module = m\nprofile = x", "\xef\xbb\xbf\xef\xbb\xbfmodule = m"}) {
    EXPECT_THAT(Refusal(contents), Not(HasSubstr("\n"))) << contents;
  }
}

TEST_F(ConfigTest, FileOfMoreThan64KiBIsRefused) {
  const std::string most = "module = m\n#" + std::string(64 * 1024 - 12, 'x');
  EXPECT_EQ(ReadConfig(Write(most)).module, folder_ / "m");
  EXPECT_THAT(Refusal(most + "x"), StartsWith(": has more than 64 KiB; keep only"));
}

TEST_F(ConfigTest, EmptyFileLacksTheModule) {
  EXPECT_THAT(Refusal(""), StartsWith(":1: no key 'module'"));
}

TEST_F(ConfigTest, MissingModuleIsReportedAtTheEndOfTheFile) {
  EXPECT_THAT(Refusal("# only\nreserved = x\n"), StartsWith(":2: no key 'module'"));
}

TEST_F(ConfigTest, UnknownKeyIsNamedWithTheKnownOnes) {
  const std::string line = Refusal("module = m\nmodul = n\n");
  EXPECT_EQ(line,
            ":2: unknown key 'modul'; known keys are module, reserved, reader-name, "
            "token-label, token-serial, slot-reader, card-number, profile, rules-off");
}

TEST_F(ConfigTest, KeysAreCaseSensitive) {
  EXPECT_THAT(Refusal("Module = m\n"), StartsWith(":1: unknown key 'Module'"));
}

TEST_F(ConfigTest, LineWithoutEqualsSignIsRefused) {
  EXPECT_THAT(Refusal("\n\nmodule\n"),
              StartsWith(":3: no '=' in the line that begins with 'module'; write 'key = value'"));
  EXPECT_THAT(Refusal("module = m\nreserved hidden\n"),
              AllOf(StartsWith(":2: no '='"), Not(HasSubstr("hidden"))));
}

TEST_F(ConfigTest, KeyWithoutValueIsRefused) {
  EXPECT_THAT(Refusal("module =\n"), StartsWith(":1: no value for 'module'"));
  EXPECT_THAT(Refusal("module = m\nreader-name = \t \n"), StartsWith(":2: no value for"));
}

TEST_F(ConfigTest, RepeatedKeyIsRefused) {
  for (const std::string key : {"reserved", "reader-name", "token-label", "token-serial",
                                "slot-reader", "card-number", "profile", "rules-off"}) {
    std::string contents = "module = m\n";
    for (int i = 0; i < 2; ++i)
      contents.append(key).append(" = ").append(Example(key)).append("\n");
    EXPECT_EQ(Refusal(contents), ":3: '" + key + "' is given twice; remove one of the lines");
  }
  EXPECT_THAT(Refusal("module = m\nmodule = m"), StartsWith(":2: 'module' is given twice"));
  EXPECT_THAT(Refusal("module = m\nmodule ="), StartsWith(":2: 'module' is given twice"));
}

TEST_F(ConfigTest, ControlCharactersAreRefusedAndNotShown) {
  EXPECT_THAT(Refusal("module = m\nreader-name = a\x1b[1mb\n"), StartsWith(":2: control"));
  EXPECT_THAT(Refusal("module = m\nrules-off = ecdsa,\x07\n"), StartsWith(":2: control"));
  EXPECT_THAT(Refusal("mod\xc2\x9bule = m\n"), StartsWith(":1: unknown key 'mod?ule'"));
  EXPECT_THAT(Refusal("mod\x1bule = m\n"), StartsWith(":1: unknown key 'mod?ule'"));
}

TEST_F(ConfigTest, NulByteIsRefusedWhereverItStands) {
  for (const std::string place : {"module = a?b", "mod?ule = a", "# ?", "?", "module?"}) {
    std::string line = place;
    line[line.find('?')] = '\0';
    EXPECT_THAT(Refusal("\n" + line + "\nmodule = m\n"), StartsWith(":2: the line has a NUL byte;"))
        << place;
  }
}

TEST_F(ConfigTest, LongTextsAreShortenedInMessages) {
  EXPECT_THAT(Refusal(std::string(5000, 'k') + " = v"),
              StartsWith(":1: unknown key '" + std::string(64, 'k') + "...'; known"));
  EXPECT_THAT(Refusal(std::string(63, 'k') + "\u00fc = v"),
              StartsWith(":1: unknown key '" + std::string(63, 'k') + "...'; known"));
}

TEST_F(ConfigTest, CardNumberIsLabelOrSerial) {
  EXPECT_FALSE(ReadConfig(Write("module = m\ncard-number = label\n")).serial_in_label);
  EXPECT_TRUE(ReadConfig(Write("module = m\ncard-number = serial\n")).serial_in_label);
  EXPECT_EQ(Refusal("module = m\ncard-number = Serial\n"),
            ":2: 'card-number' is 'Serial'; write label or serial");
}

TEST_F(ConfigTest, ProfileIsExtensionOrStandard) {
  EXPECT_TRUE(ReadConfig(Write("module = m\nprofile = extension\n")).rules.Has(Rule::kEcdsa));
  const Rules standard = ReadConfig(Write("module = m\nprofile = standard\n")).rules;
  EXPECT_FALSE(standard.Has(Rule::kEcdsa));
  EXPECT_TRUE(standard.Has(Rule::kFinishedSearches));
  EXPECT_EQ(Refusal("module = m\nprofile = none\n"),
            ":2: 'profile' is 'none'; write extension or standard");
}

TEST_F(ConfigTest, UnknownRuleIsNamedWithTheKnownOnes) {
  EXPECT_THAT(Refusal("module = m\nrules-off = ecdsa, ECDSA\n"),
              AllOf(StartsWith(":2: unknown rule 'ECDSA' in 'rules-off'; known rules are "
                               "initialisation, finished-searches, "),
                    EndsWith(", search-memory, renewed-handles")));
  EXPECT_THAT(Refusal("module = m\nrules-off = ecdsa raw-rsa\n"),
              StartsWith(":2: unknown rule 'ecdsa raw-rsa'"));
}

TEST_F(ConfigTest, RuleGivenTwiceIsRefused) {
  EXPECT_EQ(Refusal("module = m\nrules-off = ecdsa,raw-rsa , ecdsa\n"),
            ":2: 'rules-off' names 'ecdsa' twice; remove one of them");
}

TEST_F(ConfigTest, EmptyRuleNameIsRefused) {
  for (const char* list : {",", "ecdsa,", ",ecdsa", "ecdsa, ,raw-rsa"}) {
    EXPECT_THAT(Refusal(std::string("module = m\nrules-off = ") + list),
                StartsWith(":2: 'rules-off' lacks a name beside a comma;"))
        << list;
  }
}

TEST_F(ConfigTest, EachRuleCanBeSwitchedOffAlone) {
  for (const RuleName& off : kRuleNames) {
    const Rules rules = ReadConfig(Write("module = m\nrules-off = " + std::string(off.name))).rules;
    for (const RuleName& any : kRuleNames) {
      EXPECT_EQ(rules.Has(any.rule), any.rule != off.rule) << off.name << " " << any.name;
    }
  }
}

TEST_F(ConfigTest, RulesGoOffInEitherProfileWhicheverKeyComesFirst) {
  const std::string off = "rules-off = search-memory\t,  ecdsa\r\n";
  for (const std::string profile : {"profile = standard\n", "profile = extension\n"}) {
    for (const std::string& lines : {profile + off, off + profile}) {
      const Rules rules = ReadConfig(Write("module = m\n" + lines)).rules;
      EXPECT_FALSE(rules.Has(Rule::kSearchMemory)) << lines;
      EXPECT_FALSE(rules.Has(Rule::kEcdsa)) << lines;
      EXPECT_TRUE(rules.Has(Rule::kWorkerSessions)) << lines;
      EXPECT_EQ(rules.Has(Rule::kRawRsa), profile == "profile = extension\n") << lines;
    }
  }
}

TEST_F(ConfigTest, TooLongTextsAreRefused) {
  EXPECT_THAT(Refusal("module = m\nreader-name = " + std::string(65, 'r')),
              StartsWith(":2: 'reader-name' has more than 64 bytes"));
  EXPECT_THAT(Refusal("module = m\ntoken-label = " + std::string(33, 'l')),
              StartsWith(":2: 'token-label' has more than 32 bytes"));
  EXPECT_THAT(Refusal("module = m\ntoken-serial = " + std::string(17, 's')),
              StartsWith(":2: 'token-serial' has more than 16 bytes"));
  EXPECT_THAT(Refusal("module = m\nslot-reader = " + std::string(65, 'r')),
              StartsWith(":2: 'slot-reader' has more than 64 bytes"));
}

TEST_F(ConfigTest, ReaderNameInAnotherEncodingIsRefused) {
  EXPECT_THAT(Refusal("module = m\nreader-name = Leseger\xe4t\n"),
              StartsWith(":2: 'reader-name' is not UTF-8; save the file"));
  EXPECT_EQ(ReadConfig(Write("module = m\nreader-name = Lesegerät\n")).reader_name, "Lesegerät");
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
                       "slot-reader = Reader 01\n"
                       "card-number = serial\n"
                       "rules-off = raw-rsa\n"
                       "profile = standard\n"
                       "token-serial = abc=1"));
  EXPECT_EQ(config.module, "/opt/module.so");
  EXPECT_EQ(config.module_line, 3);
  EXPECT_EQ(config.reserved, "configdir='sql:/tmp/x' flags=");
  EXPECT_EQ(config.reader_name, "Reader 00 00");
  EXPECT_EQ(config.token_label, "4711 0815");
  EXPECT_EQ(config.token_serial, "abc=1");
  EXPECT_EQ(config.slot_reader, "Reader 01");
  EXPECT_TRUE(config.serial_in_label);
  EXPECT_FALSE(config.rules.Has(Rule::kRawRsa));
}

TEST_F(ConfigTest, ByteOrderMarkInFrontIsSkipped) {
  EXPECT_EQ(ReadConfig(Write("\xef\xbb\xbfmodule = /m.so\r\n")).module, "/m.so");
  EXPECT_THAT(Refusal("\n\xef\xbb\xbfmodule = /m.so\n"), StartsWith(":2: unknown key"));
}

TEST_F(ConfigTest, ModuleIsEnough) {
  const Config config = ReadConfig(Write("module = /m.so"));
  EXPECT_TRUE(config.reserved.empty());
  EXPECT_TRUE(config.reader_name.empty());
  EXPECT_TRUE(config.token_label.empty());
  EXPECT_TRUE(config.token_serial.empty());
  EXPECT_TRUE(config.slot_reader.empty());
  EXPECT_FALSE(config.serial_in_label);
  for (const RuleName& rule : kRuleNames) EXPECT_TRUE(config.rules.Has(rule.rule)) << rule.name;
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
