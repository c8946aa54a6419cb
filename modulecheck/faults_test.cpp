// Each expectation is told from all others: modules with one fault and no other.
#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAreArray;

struct Fault {
  const char* name;
  // The expectations that are not met as it is.
  std::vector<std::string> unmet;
  // What the adapter makes of it: the exit status.
  int status = 3;
};

class FaultsTest : public ModulecheckTest {
 protected:
  void Expect(const std::vector<Fault>& faults, const std::vector<std::string>& arguments = {}) {
    for (const Fault& fault : faults) {
      SCOPED_TRACE(fault.name);
      std::vector<std::string> all = {FaultyModule(fault.name)};
      all.insert(all.end(), arguments.begin(), arguments.end());
      const nlohmann::json report = RunJson(all);
      if (!report.is_object()) continue;
      EXPECT_THAT(UnmetAsItIs(report), UnorderedElementsAreArray(fault.unmet));
      EXPECT_EQ(report.at("exitStatus"), fault.status);
      const char* const verdict = fault.status == 3 ? "met-through-adapter" : "not-met";
      for (const std::string& name : fault.unmet) EXPECT_EQ(VerdictOn(report, name), verdict);
    }
  }
};

TEST_F(FaultsTest, OfBringingUp) {
  Expect({{"none", {}, 0},
          {"initialise-again", {"initialise-again"}},
          {"card-number", {"card-number"}},
          {"shared-label", {"card-number"}},
          {"finalise", {"finalise"}, 1}});
  Expect({{"slot-description", {"slot-description", "reader-name"}}},
         {"--reader", "Any name", "--adapter-config", AnyReader()});
}

TEST_F(FaultsTest, OfSearchesAndReads) {
  Expect({{"second-search", {"second-search", "set-up"}},
          {"failed-lengths", {"failed-lengths"}},
          {"invalid-handle", {"invalid-handle"}, 1},
          // That an object has the handle 0 is none.
          {"handle-zero", {}, 0}});
}

TEST_F(FaultsTest, OfCertificates) {
  Expect({{"certificates", {"certificates", "set-up"}, 1},
          {"no-certificate", {"certificates", "set-up"}, 1},
          {"certificate-labels", {"certificate-labels", "set-up"}},
          {"certificate-sizes", {"certificate-sizes", "set-up"}},
          {"certificate-ids", {"certificate-ids", "certificate-keys", "public-keys"}}});
}

TEST_F(FaultsTest, OfPublicKeys) {
  Expect({{"public-keys", {"public-keys", "certificate-keys"}},
          {"ec-usage", {"ec-usage"}},
          {"usage-flags", {"usage-flags"}, 1},
          {"allowed-mechanisms", {"allowed-mechanisms"}},
          {"raw-rsa-offered", {"allowed-mechanisms", "raw-rsa-offered"}}});
}

TEST_F(FaultsTest, AFlagThatIsReadWithTheLengthMinusOneIsNotMet) {
  const nlohmann::json report = RunJson({FaultyModule("verify-minus-one")});
  EXPECT_THAT(UnmetAsItIs(report), ElementsAre("usage-flags"));
  EXPECT_THAT(Find(report, "usage-flags").at("asItIs").at("detail"), HasSubstr("the length -1"));
}

TEST_F(FaultsTest, OneOddKeyIsNamedAndDoesNotCondemnTheModule) {
  const nlohmann::json report = RunJson({FaultyModule("odd-key")});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_THAT(
      report.at("warnings"),
      Contains(AllOf(HasSubstr("not so for all"), HasSubstr("CKA_VERIFY of the key \"RSA key\""))));
}

TEST_F(FaultsTest, AKeyWhoseMechanismsNobodyAsksForIsNamed) {
  const nlohmann::json report = RunJson({FaultyModule("useless-mechanism")});
  EXPECT_THAT(
      report.at("warnings"),
      Contains(HasSubstr("the key \"RSA key\" (CKA_ID 01) allows only CKM_SHA256_RSA_PKCS")));
}

TEST_F(FaultsTest, OfTheLogin) {
  Expect(
      {{"none", {}, 0}, {"login-state", {"login-state"}, 1}, {"private-keys", {"private-keys"}, 1}},
      {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfSigning) {
  Expect({{"sign-during-search", {"sign-during-search"}},
          {"sign-after-failure", {"sign-after-failure"}},
          {"raw-rsa-short", {"raw-rsa-short"}},
          {"raw-rsa-too-long", {"raw-rsa-too-long"}},
          {"ecdsa-long-digests", {"ecdsa-long-digests"}},
          {"ecdsa-sha1", {"ecdsa-sha1"}},
          {"wrong-signatures", {"raw-rsa-block", "raw-rsa-short", "ecdsa-der", "ecdsa-sha1"}, 1}},
         {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfKeysThatWantALoginForEachOperation) {
  const nlohmann::json report = RunJson({FaultyModule("context-login"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_GT(Calls("context C_Login"), 0u);
  const nlohmann::json& found = Find(report, "context-login");
  EXPECT_EQ(found.at("asItIs").at("resultName"), "CKR_USER_NOT_LOGGED_IN (0x101)");
  EXPECT_EQ(found.at("verdict"), "met-through-adapter");
  EXPECT_THAT(found.at("rules"), ElementsAre("context-login"));
  // What is signed or decrypted with such keys fails as it is.
  EXPECT_THAT(UnmetAsItIs(report), IsSupersetOf({"raw-rsa-block", "ecdsa-der", "decrypt-pkcs1"}));
  EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
}

TEST_F(FaultsTest, OfDecrypting) {
  Expect({{"decrypt-pkcs1", {"decrypt-pkcs1"}, 1}, {"decrypt-raw", {"decrypt-raw"}, 1}},
         {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfKeyAgreement) {
  const nlohmann::json report =
      RunJson({FaultyModule("derivation"), "--adapter", "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("derivation"));
}

TEST_F(FaultsTest, AModuleThatTheExtensionCannotInitialiseIsListedBehindTheAdapter) {
  const nlohmann::json report = RunJson({FaultyModule("initialise"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_THAT(UnmetAsItIs(report), ElementsAre("initialise"));
  EXPECT_EQ(report.at("listing").at("of"), "adapter");
  EXPECT_EQ(report.at("listing").at("certificates").size(), 2u);
}

TEST_F(FaultsTest, AModuleThatNobodyCanInitialiseDoesNotWork) {
  const nlohmann::json report = RunJson({FaultyModule("no-start"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("initialise"));
  EXPECT_THAT(WithVerdict(report, "not-reached"), Contains("second-search"));
  EXPECT_THAT(Find(report, "initialise").at("advice"), HasSubstr("`reserved = ...`"));
}

TEST_F(FaultsTest, AModuleWithoutReadWriteSessionsIsReadThroughOthers) {
  const nlohmann::json report = RunJson({FaultyModule("read-only"), "--pin-file", PinFile()});
  EXPECT_EQ(Find(report, "token").at("asItIs").at("resultName"),
            "CKR_TOKEN_WRITE_PROTECTED (0xe2)");
  EXPECT_EQ(AsItIs(report, "ecdsa-der"), "met");
}

TEST_F(FaultsTest, LengthsThatNobodyOfferedDoNoHarm) {
  const nlohmann::json report = RunJson({FaultyModule("huge-lengths")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(UnmetAsItIs(report), Contains("certificates"));
  EXPECT_EQ(Calls("C_Finalize 0"), 2u);
}

// --- What could not be judged ---

TEST_F(FaultsTest, WithoutACardNothingCouldBeJudged) {
  for (const char* fault : {"no-slot", "empty-reader", "token"}) {
    const nlohmann::json report = RunJson({FaultyModule(fault), "--pin-file", PinFile()});
    EXPECT_EQ(report.at("exitStatus"), 4) << fault;
    EXPECT_EQ(report.at("conclusion"), "could-not-be-judged");
    EXPECT_EQ(Reason(report), "no-card") << fault;
    EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty()) << fault;
    EXPECT_EQ(Calls("C_Login"), 0u);
  }
}

TEST_F(FaultsTest, AReaderWithoutACardIsNotJudgedByAnotherOnes) {
  const nlohmann::json slots = RunJson({SoftHsm()}).at("listing").at("slots");
  // With a blank of the padding it is no part of the other one's name.
  const std::string reader = slots[1].at("readerName").get<std::string>() + " ";
  const nlohmann::json report =
      RunJson({FaultyModule("none", SoftHsm()), "--reader", reader, "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 4);
  EXPECT_EQ(Reason(report), "no-card");
  EXPECT_THAT(report.at("notJudged").at("text"), HasSubstr("slot 2, "));
  EXPECT_EQ(Calls("C_Login"), 0u);
}

TEST_F(FaultsTest, ACardThatIsPulledEndsTheCheckAndBlamesNobody) {
  const nlohmann::json report = RunJson({FaultyModule("card-pulled"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 4);
  EXPECT_EQ(Reason(report), "card-pulled");
  EXPECT_THAT(report.at("notJudged").at("text"), HasSubstr("in the step sign-during-search"));
  EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
  EXPECT_EQ(VerdictOn(report, "private-keys"), "met");
  EXPECT_EQ(Calls("C_Login"), 1u);
  EXPECT_EQ(Calls("C_Finalize 0"), 1u);
}

TEST_F(FaultsTest, WhatWasOpenedIsClosedAndTheModuleFinalised) {
  RunJson({FaultyModule("second-search"), "--adapter", "--pin-file", PinFile()});
  EXPECT_EQ(Calls("C_Finalize"), 2u);
  EXPECT_EQ(Calls("C_Finalize 0"), 2u);
}

// --- The worker ---

TEST_F(FaultsTest, ACrashEndsTheCheckAndNamesTheStep) {
  const nlohmann::json report = RunJson({FaultyModule("crash-in-sign"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(Find(report, "sign-during-search").at("asItIs").at("detail"),
              HasSubstr("the module ended the process (signal "));
  EXPECT_THAT(report.at("warnings"),
              Contains(HasSubstr("the check ended in the step sign-during-search: ")));
  EXPECT_EQ(VerdictOn(report, "private-keys"), "met");
  EXPECT_EQ(VerdictOn(report, "decrypt-pkcs1"), "not-reached");
  // Once as it is, once behind the adapter: nothing is begun again.
  EXPECT_EQ(Calls("C_Sign"), 2u);
}

TEST_F(FaultsTest, AModuleThatHangsIsEndedWithTheTime) {
  const nlohmann::json report =
      RunJson({FaultyModule("hang-in-sign"), "--pin-file", PinFile(), "--timeout", "4"});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(Find(report, "sign-during-search").at("asItIs").at("detail"),
            "the time for it ran out");
}

TEST_F(FaultsTest, AModuleThatEndsTheProcessAtOnceDoesNotWork) {
  const nlohmann::json report = RunJson({FaultyModule("exit-at-start")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(Find(report, "initialise").at("asItIs").at("detail"),
            "the module ended the process (exit status 3)");
  EXPECT_EQ(VerdictOn(report, "second-search"), "not-reached");
}

TEST_F(FaultsTest, ACrashWhileListingIsOneOfTheListing) {
  const nlohmann::json report = RunJson({FaultyModule("crash-in-listing")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(UnmetAsItIs(report), ElementsAre("listing"));
}

TEST_F(FaultsTest, WhatAModuleWritesIntoTheDocumentIsNoReport) {
  const Outcome outcome = Run({FaultyModule("garbage"), "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(nlohmann::json::parse(outcome.output).at("failure"),
              HasSubstr("disturbed the check"));
}

}  // namespace
}  // namespace kelvrin::modulecheck
