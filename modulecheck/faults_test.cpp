// Each expectation is told from all others: modules with one fault and no other.
#include "modulecheck/testing/modulecheck_fixture.h"

namespace kelvrin::modulecheck {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
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
          {"finalise", {"finalise"}, 1}});
  Expect({{"slot-description", {"slot-description", "reader-name"}}}, {"--reader", "Any name"});
}

TEST_F(FaultsTest, OfSearchesAndReads) {
  Expect({{"second-search", {"second-search", "set-up"}},
          {"failed-lengths", {"failed-lengths"}},
          {"invalid-handle", {"invalid-handle"}, 1}});
}

TEST_F(FaultsTest, OfCertificates) {
  Expect({{"certificates", {"certificates", "set-up"}, 1},
          {"no-certificate", {"certificates", "set-up"}, 1},
          {"certificate-labels", {"certificate-labels", "set-up"}},
          {"certificate-sizes", {"certificate-sizes", "set-up"}}});
}

TEST_F(FaultsTest, OfPublicKeys) {
  Expect({{"public-keys", {"public-keys", "certificate-keys"}},
          {"ec-usage", {"ec-usage"}},
          {"allowed-mechanisms", {"allowed-mechanisms"}},
          {"raw-rsa-offered", {"allowed-mechanisms", "raw-rsa-offered"}}});
}

TEST_F(FaultsTest, OfFlagsThatOnlyEcKeysGetBack) {
  const nlohmann::json report = RunJson({FaultyModule("usage-flags")});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(UnmetAsItIs(report), ElementsAre("usage-flags"));
}

TEST_F(FaultsTest, OfTheLogin) {
  Expect({{"none", {}, 0}, {"login-state", {"login-state"}, 1}}, {"--pin-file", PinFile()});
  Expect({{"private-keys", {"private-keys"}, 1}}, {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfSigning) {
  Expect({{"sign-during-search", {"sign-during-search"}},
          {"sign-after-failure", {"sign-after-failure"}},
          {"raw-rsa-short", {"raw-rsa-short"}},
          {"raw-rsa-too-long", {"raw-rsa-too-long"}},
          {"ecdsa-long-digests", {"ecdsa-long-digests"}},
          {"ecdsa-sha1", {"ecdsa-sha1"}}},
         {"--pin-file", PinFile()});
}

TEST_F(FaultsTest, OfSigningThatTheAdapterCannotCure) {
  const nlohmann::json wrong = RunJson({FaultyModule("wrong-signatures"), "--pin-file", PinFile()});
  EXPECT_EQ(wrong.at("exitStatus"), 1);
  EXPECT_THAT(UnmetAsItIs(wrong),
              ElementsAre("raw-rsa-block", "raw-rsa-short", "ecdsa-der", "ecdsa-sha1"));
}

TEST_F(FaultsTest, OfKeysThatWantALoginForEachOperation) {
  const std::string module = FaultyModule("context-login");
  const nlohmann::json report = RunJson({module, "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 3);
  EXPECT_GT(Calls("context C_Login"), 0u);
  for (const auto& key : report.at("listing").at("privateKeys")) {
    EXPECT_EQ(key.at("alwaysAuthenticate"), true);
  }
  const nlohmann::json& found = Find(report, "context-login");
  EXPECT_EQ(found.at("asItIs").at("resultName"), "CKR_USER_NOT_LOGGED_IN (0x101)");
  EXPECT_EQ(found.at("verdict"), "met-through-adapter");
  EXPECT_THAT(found.at("rules"), ElementsAre("context-login"));
  // What is signed or decrypted with such keys fails as it is.
  EXPECT_THAT(UnmetAsItIs(report), IsSupersetOf({"raw-rsa-block", "ecdsa-der", "decrypt-pkcs1"}));
  EXPECT_THAT(WithVerdict(report, "not-met"), IsEmpty());
}

TEST_F(FaultsTest, OfKeysWhoseLoginsNobodyMakes) {
  const std::string lines = folder_.Write("lines", "rules-off = context-login\n");
  const nlohmann::json report =
      RunJson({FaultyModule("context-login"), "--pin-file", PinFile(), "--adapter-config", lines});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_EQ(Calls("context C_Login"), 0u);
  EXPECT_EQ(VerdictOn(report, "context-login"), "not-met");
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
  EXPECT_THAT(Find(report, "initialise").at("rules"), ElementsAre("initialisation"));
  EXPECT_EQ(report.at("listing").at("of"), "adapter");
  EXPECT_EQ(report.at("listing").at("certificates").size(), 2u);
}

TEST_F(FaultsTest, AModuleThatNobodyCanInitialiseDoesNotWork) {
  const nlohmann::json report = RunJson({FaultyModule("no-start"), "--pin-file", PinFile()});
  EXPECT_EQ(report.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(report, "not-met"), ElementsAre("initialise"));
  EXPECT_THAT(WithVerdict(report, "not-reached"), Contains("second-search"));
  EXPECT_THAT(Find(report, "initialise").at("advice"), testing::HasSubstr("`reserved = ...`"));
}

TEST_F(FaultsTest, WithoutASlotOrATokenNothingCanBeJudged) {
  const nlohmann::json slots = RunJson({FaultyModule("no-slot")});
  EXPECT_EQ(slots.at("exitStatus"), 1);
  EXPECT_THAT(slots.at("listing").at("slots"), IsEmpty());
  EXPECT_THAT(WithVerdict(slots, "not-met"), ElementsAreArray({"reader-name", "token"}));

  const nlohmann::json token = RunJson({FaultyModule("token")});
  EXPECT_EQ(token.at("exitStatus"), 1);
  EXPECT_THAT(WithVerdict(token, "not-met"), Contains("token"));
}

}  // namespace
}  // namespace kelvrin::modulecheck
