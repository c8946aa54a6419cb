// The program as its users see it.
#include <sys/stat.h>

#include "modulecheck/testing/modulecheck_fixture.h"
#include "tests/card/softhsm_card.h"

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST_F(ModulecheckTest, WrongUsageExitsWith2) {
  const std::string module = GoodModule();
  const std::vector<Arguments> wrong = {{},
                                        {"--json"},
                                        {module, "more"},
                                        {module, "--loud"},
                                        {module, "--timeout", "0"},
                                        {module, "--pin-file", ""},
                                        {module, "--adapter-config", ""},
                                        {module, "--adapter-config", "missing"}};
  for (const Arguments& arguments : wrong) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, StartsWith("modulecheck: "));
  }
}

TEST_F(ModulecheckTest, HelpIsNoFailureAndTellsOfTheExitStatuses) {
  const Outcome outcome = Run({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("--adapter-config"), HasSubstr("reserved"),
                                    HasSubstr("4 it could not be judged")));
}

TEST_F(ModulecheckTest, AFileThatIsNoModuleIsNamedInOneLineAndInOneDocument) {
  const std::string pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const Arguments files = {
      folder_ / "missing",           folder_.path(),         pipe, "/dev/zero", KELVRIN_NO_MODULE,
      folder_.Write("text", "text"), FaultyModule("no-list")};
  for (const std::string& file : files) {
    const Outcome outcome = Run({file});
    EXPECT_EQ(outcome.status, 1) << file;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, AllOf(StartsWith("modulecheck: "), HasSubstr(file)));
    EXPECT_EQ(std::ranges::count(outcome.errors, '\n'), 1) << outcome.errors;
    const nlohmann::json report = RunJson({file});
    EXPECT_EQ(report.at("conclusion"), "does-not-work");
    EXPECT_THAT(report.at("failure"), HasSubstr(file));
  }
}

TEST_F(ModulecheckTest, AModuleThatDoesAllThatIsExpectedWorksAsItIs) {
  const Outcome outcome = Run({GoodModule(), "--pin-file", PinFile()});
  EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("The module works as it is"), HasSubstr("Card number: 4711"),
                    Not(HasSubstr("NOT MET")), Not(HasSubstr("with adapter ")),
                    HasSubstr("key \"EC key\", object ID 0202: sign key-exchange")));
}

TEST_F(ModulecheckTest, WithoutAPinNobodyLogsInAndWhatNeedsItDoesNotCount) {
  const nlohmann::json report = RunJson({GoodModule()});
  EXPECT_EQ(report.at("exitStatus"), 0);
  EXPECT_EQ(Calls("C_Login"), 0u);
  EXPECT_EQ(Calls("C_Sign"), 0u);
  EXPECT_THAT(WithVerdict(report, "not-tried"),
              AllOf(Contains("login"), Contains("ecdsa-der"), Contains("derivation")));
  EXPECT_EQ(Find(report, "login").at("asItIs").at("detail"), "needs --pin-file");
  EXPECT_THAT(Run({GoodModule()}).output,
              HasSubstr("The module works as it is, as far as it was tried"));
}

TEST_F(ModulecheckTest, KeysAreDerivedBehindTheAdapterAlone) {
  RunJson({GoodModule(), "--pin-file", PinFile()});
  EXPECT_EQ(Calls("C_DeriveKey"), 0u);
  const nlohmann::json report = RunJson({GoodModule(), "--adapter", "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_EQ(Calls("C_DeriveKey"), 2u);
  EXPECT_EQ(VerdictOn(report, "derivation"), "met-through-adapter");
  EXPECT_THAT(Find(report, "derivation").at("rules"), ElementsAre("derivation"));
}

TEST_F(ModulecheckTest, WhatWouldBePublishedOrWhyNothingIsSaid) {
  const nlohmann::json good = RunJson({GoodModule()}).at("listing").at("published");
  ASSERT_EQ(good.at("items").size(), 4u);
  const nlohmann::json key = With(good.at("items"), "objectId", "0201");
  EXPECT_EQ(key.at("kind"), "key");
  EXPECT_EQ(key.at("name"), "RSA key");
  EXPECT_THAT(key.at("capabilities"), ElementsAre("sign", "decrypt"));
  EXPECT_EQ(good.at("ended"), "");

  const nlohmann::json bad = RunJson({FaultyModule("second-search")}).at("listing").at("published");
  EXPECT_TRUE(bad.at("items").empty());
  EXPECT_THAT(bad.at("ended"),
              AllOf(HasSubstr("public key"), HasSubstr("CKR_OPERATION_ACTIVE (0x90)")));
}

TEST_F(ModulecheckTest, KeysAreListedWithUsageAndMechanisms) {
  const nlohmann::json listing = RunJson({GoodModule(), "--pin-file", PinFile()}).at("listing");
  EXPECT_EQ(listing.at("cardNumber"), "4711");
  const nlohmann::json rsa = With(listing.at("publicKeys"), "id", "01");
  EXPECT_EQ(rsa.at("type"), "RSA-2048");
  EXPECT_THAT(rsa.at("usage"), ElementsAre("VERIFY", "ENCRYPT", "WRAP"));
  EXPECT_THAT(rsa.at("allowedMechanisms"), Contains("CKM_RSA_X_509"));
  EXPECT_EQ(listing.at("privateKeys").size(), 2u);
}

TEST_F(ModulecheckTest, TextsOfTheModuleCannotDisturbTheReport) {
  const Outcome outcome = Run({FaultyModule("odd-description")});
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("\"A<B &  [31m?"), HasSubstr("<string>A&lt;B &amp;  [31m?"),
                    Not(HasSubstr("\x1b"))));
}

TEST_F(ModulecheckTest, StandardOutputHoldsTheReportAlone) {
  const std::string module = FaultyModule("noise");
  const Outcome outcome = Run({module, "--json"});
  EXPECT_TRUE(nlohmann::json::accept(outcome.output));
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(Run({module}).output, AllOf(StartsWith(module), Not(HasSubstr("noise"))));
}

TEST_F(ModulecheckTest, AStandardOutputThatCannotBeWrittenIsAFailure) {
  const Outcome outcome = host::testing::RunProgram(
      {"/bin/sh", "-c", "exec " + Program() + " " + GoodModule() + " >/dev/full"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("standard output cannot be written"));
}

TEST_F(ModulecheckTest, TheAdaptersFolderIsGoneAfterwardsAlsoWhenASignalEndsTheCheck) {
  const auto temporary = folder_ / "temporary";
  std::filesystem::create_directory(temporary);
  setenv("TMPDIR", temporary.c_str(), 1);
  EXPECT_EQ(RunJson({FaultyModule("second-search"), "--adapter"}).at("exitStatus"), 3);
  EXPECT_TRUE(std::filesystem::is_empty(temporary));
  // Ended as soon as the module behind the adapter hangs.
  host::testing::RunProgram({"/bin/sh", "-c",
                             Program() + " " + FaultyModule("hang-behind-adapter") +
                                 " --adapter & " + "until grep -q hanging " +
                                 (folder_ / "calls").string() +
                                 " 2>/dev/null; do sleep 0.05; done; kill $!; wait $!"});
  unsetenv("TMPDIR");
  EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST_F(ModulecheckTest, AnAdapterThatCannotBeUsedLeavesTheModuleUnjudged) {
  const std::string missing = folder_ / "missing.so";
  const Outcome outcome = Run({FaultyModule("second-search"), "--adapter-library", missing});
  EXPECT_EQ(outcome.status, 4);
  EXPECT_THAT(outcome.errors, AllOf(StartsWith("modulecheck: the adapter "), HasSubstr(missing)));
  EXPECT_EQ(Run({GoodModule(), "--adapter-library", missing}).status, 0);

  const std::string program = folder_ / "modulecheck";
  std::filesystem::copy_file(Program(), program);
  const Outcome alone = host::testing::RunProgram({program, FaultyModule("second-search")});
  EXPECT_EQ(alone.status, 4);
  EXPECT_THAT(alone.output, HasSubstr("Could not be judged: the adapter's library was not found"));
}

TEST_F(ModulecheckTest, AMistakeInTheAdaptersConfigurationIsNamedByFileAndLine) {
  const std::string lines = folder_.Write("lines", "# fine\nreservd = x\n");
  for (const char* fault : {"none", "second-search", "initialise"}) {
    const nlohmann::json report =
        RunJson({FaultyModule(fault), "--adapter", "--adapter-config", lines});
    EXPECT_EQ(report.at("exitStatus"), 4);
    EXPECT_EQ(Reason(report), "adapter");
    EXPECT_THAT(report.at("notJudged").at("text"),
                AllOf(HasSubstr("the adapter does not come up: Kelvrin adapter: " + lines + ":2:"),
                      HasSubstr("reservd")));
  }
}

TEST_F(ModulecheckTest, KeysThatFitNoTokenAreNamedAsSuch) {
  for (const char* key : {"token-label", "token-serial"}) {
    const std::string lines = folder_.Write("lines", std::string(key) + " = Nobody's\n");
    const nlohmann::json report =
        RunJson({FaultyModule("second-search"), "--adapter-config", lines});
    EXPECT_EQ(report.at("exitStatus"), 4);
    EXPECT_EQ(Reason(report), "adapter");
    EXPECT_THAT(report.at("notJudged").at("text"),
                AllOf(HasSubstr("the adapter shows no card"), HasSubstr(lines)));
  }
}

TEST_F(ModulecheckTest, ACardWithoutCertificatesDoesNotWork) {
  const nlohmann::json report = RunJson({FaultyModule("certificates"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("certificates", "set-up"));
  EXPECT_EQ(VerdictOn(report, "ecdsa-der"), "not-concerned");
}

TEST_F(ModulecheckTest, MoreCertificatesWithKeysThanAreReadCannotBeHelped) {
  const SoftHsmCard card({.extra_certificates = 20, .lone_certificate = true});
  const nlohmann::json report = RunJson({SoftHsmCard::Module(), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("certificate-order"));
  EXPECT_EQ(VerdictOn(report, "private-keys"), "met-through-adapter");
  EXPECT_EQ(AsItIs(report, "certificate-keys"), "unmet");
  ASSERT_EQ(report.at("leftOutByAdapter").size(), 1u);
  EXPECT_EQ(report.at("leftOutByAdapter")[0].at("id"), "7f");
  EXPECT_EQ(report.at("leftOutByAdapter")[0].at("reason"), "it has no key, as a CA's");
}

// A module as it is installed, with a card in the first of two slots.
class SoftHsmTest : public ModulecheckTest {
 protected:
  const std::string module_ = SoftHsmCard::Module();
  const SoftHsmCard card_;
};

TEST_F(SoftHsmTest, AModuleThatDoesNotWorksWithTheAdapter) {
  const nlohmann::json report = RunJson({module_, "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_EQ(report.at("conclusion"), "works-with-adapter");
  EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
  const nlohmann::json search = Find(report, "second-search");
  EXPECT_EQ(search.at("verdict"), "met-through-adapter");
  EXPECT_EQ(search.at("asItIs").at("result"), 0x90);
  EXPECT_EQ(search.at("asItIs").at("resultName"), "CKR_OPERATION_ACTIVE (0x90)");
  EXPECT_EQ(VerdictOn(report, "ecdsa-der"), "met-through-adapter");
  EXPECT_THAT(Find(report, "ecdsa-der").at("rules"), ElementsAre("ecdsa"));
  EXPECT_EQ(VerdictOn(report, "raw-rsa-block"), "met");
  EXPECT_EQ(VerdictOn(report, "decrypt-pkcs1"), product::AreShipped() ? "not-tried" : "met");
  EXPECT_EQ(VerdictOn(report, "derivation"), "not-tried");
  // It ends the process there; what came before is known all the same.
  EXPECT_THAT(Find(report, "raw-rsa-too-long").at("asItIs").at("detail"),
              HasSubstr("the module ended the process (exit status "));
  const nlohmann::json certificate =
      With(report.at("listing").at("certificates"), "label", "RSA certificate");
  EXPECT_EQ(certificate.at("size"), card_.Read("rsa.der").size());
}

TEST_F(SoftHsmTest, WithAdapterTheListingIsWhatTheExtensionWouldSee) {
  const std::string any = folder_.Write("any", "any-reader = yes\n");
  const nlohmann::json report =
      RunJson({module_, "--adapter", "--reader", "My Reader", "--adapter-config", any});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_EQ(VerdictOn(report, "reader-name"), "met-through-adapter");
  const nlohmann::json& listing = report.at("listing");
  EXPECT_EQ(listing.at("of"), "adapter");
  ASSERT_EQ(listing.at("slots").size(), 1u);
  EXPECT_EQ(listing.at("slots")[0].at("readerName"), "My Reader");
  EXPECT_EQ(listing.at("published").at("items").size(), 4u);
}

TEST_F(SoftHsmTest, TheSlotThatIsPickedAndTheOneThatIsJudgedAreNamed) {
  const nlohmann::json listing = RunJson({module_}).at("listing");
  EXPECT_EQ(listing.at("of"), "module");
  EXPECT_EQ(listing.at("slots").size(), 2u);
  EXPECT_EQ(listing.at("picked"), 0);
  EXPECT_EQ(listing.at("judged"), 1);
  EXPECT_THAT(
      Run({module_, "--reader", "No such reader"}).output,
      AllOf(HasSubstr("WARNING: no slot's description contains \"No such reader\""),
            HasSubstr("LAST slot"), HasSubstr("picks slot 2"), HasSubstr("Judged is slot 1")));
  EXPECT_THAT(Run({module_, "--reader", "SoftHSM"}).output,
              AllOf(Not(HasSubstr("WARNING")), HasSubstr("the first that contains")));
}

}  // namespace
}  // namespace kelvrin::modulecheck
