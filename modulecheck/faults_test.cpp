// Each expectation is told from all others: modules with one fault and no other.
#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAreArray;

struct Fault {
  const char* name;
  // The expectations that are not met as it is.
  Arguments unmet;
  // What the adapter makes of it: the exit status.
  int status = 3;
  // What the report says of it.
  const char* says = "";
};

class FaultsTest : public ModulecheckTest {
 protected:
  void Expect(const std::vector<Fault>& faults, const Arguments& arguments = {}) {
    for (const Fault& fault : faults) {
      SCOPED_TRACE(fault.name);
      const nlohmann::json report = RunJson({FaultyModule(fault.name)}, arguments);
      if (!report.is_object()) continue;
      EXPECT_THAT(UnmetAsItIs(report), UnorderedElementsAreArray(fault.unmet));
      EXPECT_EQ(report.at("exitStatus"), fault.status);
      const char* const verdict = fault.status == 3 ? "met-through-adapter" : "not-met";
      for (const std::string& name : fault.unmet) EXPECT_EQ(VerdictOn(report, name), verdict);
      EXPECT_THAT(report.dump(), HasSubstr(fault.says));
    }
  }
  nlohmann::json RunWithPin(const std::string& fault, const Arguments& more = {}) {
    return RunJson({FaultyModule(fault), "--pin-file", PinFile()}, more);
  }
};

TEST_F(FaultsTest, OfBringingUp) {
  Expect({{"none", {}, 0},
          {"initialise", {"initialise"}},
          {"initialise-again", {"initialise-again"}},
          {"card-number", {"card-number"}},
          {"shared-label", {"card-number"}},
          {"read-only", {"token", "set-up"}, 3, "CKR_TOKEN_WRITE_PROTECTED (0xe2)"},
          {"finalise", {"finalise"}, 1}});
  Expect({{"slot-description", {"slot-description", "reader-name"}}},
         {"--reader", "Any name", "--adapter-config", folder_.Write("any", "any-reader = yes\n")});
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
          {"certificate-labels", {"certificate-labels"}},
          {"certificate-sizes", {"certificate-sizes", "set-up"}},
          {"certificate-ids", {"certificate-ids", "certificate-keys", "public-keys"}}});
}

// One odd key is named and does not condemn the module, nor does one whose mechanisms nobody asks
// for.
TEST_F(FaultsTest, OfPublicKeys) {
  Expect({{"public-keys", {"public-keys", "certificate-keys"}},
          {"ec-usage", {"ec-usage"}},
          {"usage-flags", {"usage-flags"}, 1},
          {"verify-minus-one", {"usage-flags"}, 1, "has the length -1"},
          {"odd-key", {"usage-flags"}, 3, R"("not so for all: C_GetAttributeValue gave )"},
          {"odd-key", {"usage-flags"}, 3, R"(CKA_VERIFY of the key \"RSA key\")"},
          {"allowed-mechanisms", {"allowed-mechanisms"}},
          {"useless-mechanism",
           {"allowed-mechanisms"},
           3,
           R"("the key \"RSA key\" (CKA_ID 01) allows only CKM_SHA256_RSA_PKCS, which )"},
          {"raw-rsa-offered", {"allowed-mechanisms", "raw-rsa-offered"}}});
}

TEST_F(FaultsTest, OfTheLoginOfSigningAndOfDecrypting) {
  Expect({{"none", {}, 0},
          {"login-state", {"login-state"}, 1},
          {"private-keys", {"private-keys"}, 1},
          {"sign-during-search", {"sign-during-search"}},
          {"sign-after-failure", {"sign-after-failure"}},
          {"raw-rsa-short", {"raw-rsa-short"}},
          {"raw-rsa-too-long", {"raw-rsa-too-long"}},
          {"ecdsa-der", {"ecdsa-der"}},
          {"ecdsa-long-digests", {"ecdsa-long-digests"}}},
         {"--pin-file", PinFile()});
}

// What ships for macOS looks at the form alone.
TEST_F(FaultsTest, OfResultsThatHaveTheFormButAreWrong) {
  std::vector<Fault> faults = {
      {"ecdsa-sha1", {"ecdsa-sha1"}},
      {"wrong-signatures", {"raw-rsa-block", "raw-rsa-short", "ecdsa-der", "ecdsa-sha1"}, 1},
      {"decrypt-pkcs1", {"decrypt-pkcs1"}, 1},
      {"decrypt-raw", {"decrypt-raw"}, 1}};
  for (Fault& fault : faults) {
    if (product::AreShipped()) fault = {fault.name, {}, 0};
  }
  Expect(faults, {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfKeysThatWantALoginForEachOperation) {
  const nlohmann::json report = RunWithPin("context-login");
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_GT(Calls("context C_Login"), 0u);
  const nlohmann::json found = Find(report, "context-login");
  EXPECT_EQ(found.at("asItIs").at("resultName"), "CKR_USER_NOT_LOGGED_IN (0x101)");
  EXPECT_EQ(found.at("verdict"), "met-through-adapter");
  EXPECT_THAT(found.at("rules"), ElementsAre("context-login"));
  // What is signed or decrypted with such keys fails as it is.
  EXPECT_THAT(UnmetAsItIs(report), IsSupersetOf({"raw-rsa-block", "ecdsa-der"}));
  EXPECT_EQ(AsItIs(report, "decrypt-pkcs1"), product::AreShipped() ? "not-tried" : "unmet");
  EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
}

TEST_F(FaultsTest, OfKeyAgreement) {
  const nlohmann::json report = RunWithPin("derivation", {"--adapter"});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("derivation"));
}

TEST_F(FaultsTest, AModuleThatTheExtensionCannotInitialiseIsListedBehindTheAdapter) {
  const nlohmann::json listing = RunWithPin("initialise").at("listing");
  EXPECT_EQ(listing.at("of"), "adapter");
  EXPECT_EQ(listing.at("certificates").size(), 2u);
}

TEST_F(FaultsTest, AModuleThatNobodyCanInitialiseDoesNotWork) {
  const nlohmann::json report = RunWithPin("no-start");
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("initialise"));
  EXPECT_THAT(WithVerdict(report, "not-reached"), Contains("second-search"));
  EXPECT_THAT(Find(report, "initialise").at("advice"), HasSubstr("`reserved = ...`"));
}

TEST_F(FaultsTest, AModuleWithoutReadWriteSessionsIsReadThroughOthers) {
  EXPECT_EQ(AsItIs(RunWithPin("read-only"), "ecdsa-der"), "met");
}

TEST_F(FaultsTest, LengthsThatNobodyOfferedDoNoHarm) {
  const nlohmann::json report = RunJson({FaultyModule("huge-lengths")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(UnmetAsItIs(report), Contains("certificates"));
  EXPECT_EQ(Calls("C_Finalize 0"), 2u);
}

// No card, a PIN that is not to be tried, a card that is pulled: nobody is blamed.
TEST_F(FaultsTest, WhatCouldNotBeJudgedHasAReason) {
  struct Case {
    const char* fault;
    const char* reason;
    const char* text;
    std::size_t logins = 0;
    Arguments more = {};
  };
  const Case cases[] = {
      {"no-slot", "no-card", "the module shows no slot"},
      {"empty-reader", "no-card", "slot 1, \"Memory reader\", has no card"},
      {"token", "no-card", "or none that is initialised"},
      // It is not judged by another reader's card.
      {"second-reader-empty", "no-card", "slot 2, ", 0, {"--reader", "Empty reader"}},
      {"pin-final-try", "login-withheld", "the token says that one try of the PIN is left"},
      {"pin-locked", "login-withheld", "the token says that the PIN is locked"},
      {"card-pulled", "card-pulled", "in the step sign-during-search", 1},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.fault);
    const nlohmann::json report = RunWithPin(one.fault, one.more);
    EXPECT_EQ(report.at("exitStatus"), 4);
    EXPECT_EQ(report.at("conclusion"), "could-not-be-judged");
    EXPECT_EQ(Reason(report), one.reason);
    EXPECT_THAT(report.at("notJudged").at("text"), HasSubstr(one.text));
    EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
    EXPECT_EQ(Calls("C_Login"), one.logins);
  }
  // The check ended there, and what came before is known.
  EXPECT_EQ(Calls("C_Finalize 0"), 1u);
  EXPECT_EQ(VerdictOn(RunWithPin("card-pulled"), "private-keys"), "met");
}

TEST_F(FaultsTest, WhatWasOpenedIsClosedAndTheModuleFinalised) {
  RunWithPin("second-search", {"--adapter"});
  EXPECT_EQ(Calls("C_Finalize"), 2u);
  EXPECT_EQ(Calls("C_Finalize 0"), 2u);
}

// --- The worker ---

TEST_F(FaultsTest, ACrashOrTheEndOfTheTimeEndsTheCheckAndNamesTheStep) {
  struct Case {
    const char* fault;
    const char* step;
    const char* expectation;
    const char* ending;
    const char* seconds = "120";
  };
  const Case cases[] = {
      {"crash-in-sign", "sign-during-search", "sign-during-search",
       "the module ended the process (signal "},
      {"endless-noise", "sign-during-search", "sign-during-search",
       "the module ended the process (signal "},
      // Long enough to come to the step on a busy machine.
      {"hang-in-sign", "sign-during-search", "sign-during-search", "the time for it ran out", "20"},
      {"crash-in-listing", "listing", "listing", "the module ended the process (signal "},
      {"exit-at-start", "bring-up", "initialise", "the module ended the process (exit status 3)"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.fault);
    const nlohmann::json report = RunWithPin(one.fault, {"--timeout", one.seconds});
    EXPECT_EQ(report.at("exitStatus"), 1);
    EXPECT_THAT(UnmetAsItIs(report), ElementsAre(one.expectation));
    EXPECT_THAT(Find(report, one.expectation).at("asItIs").at("detail"), HasSubstr(one.ending));
    EXPECT_THAT(report.at("warnings"),
                Contains(HasSubstr("the check ended in the step " + std::string(one.step) + ": ")));
    EXPECT_EQ(VerdictOn(report, "decrypt-pkcs1"), "not-reached");
  }
}

TEST_F(FaultsTest, AfterACrashNothingIsBegunAgainAndWhatCameBeforeIsKnown) {
  const nlohmann::json report = RunWithPin("crash-in-sign");
  EXPECT_EQ(VerdictOn(report, "private-keys"), "met");
  // Once as it is, once behind the adapter.
  EXPECT_EQ(Calls("C_Sign"), 2u);
}

TEST_F(FaultsTest, WhatAModuleWritesIntoTheDocumentIsNoReport) {
  const Outcome outcome = Run({FaultyModule("garbage"), "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(nlohmann::json::parse(outcome.output).at("failure"),
              HasSubstr("disturbed the check"));
}

}  // namespace
}  // namespace kelvrin::modulecheck
