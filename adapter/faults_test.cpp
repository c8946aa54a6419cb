// Each rule in front of a module that misbehaves in the way the rule is for, and in no other: what
// fails without the adapter works behind it, and fails again when that one rule is switched off.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "adapter/rules.h"
#include "adapter/testing/fault_module.h"
#include "adapter/testing/fault_module_fixture.h"

namespace kelvrin::adapter {
namespace {

using Failures = std::vector<std::string>;

// One fault and what comes of it on the extension's road.
struct Row {
  std::string name;
  Fault fault = Fault::kNone;
  std::string rule;
  std::string also_off = {};         // a rule that would hide the fault
  Failures bare;                     // what fails on the module itself
  std::optional<Failures> off = {};  // behind the adapter without the rule, where it is not that
  Failures adapted = {};             // behind the adapter: what no rule can cure
  std::string lines = {};            // of the configuration
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

// The same result for several steps.
Failures All(const Failures& steps, const std::string& result) {
  Failures failures;
  failures.reserve(steps.size());
  for (const std::string& step : steps) failures.push_back(std::string(step).append(": " + result));
  return failures;
}

const std::string kReserved = "reserved = " + std::string(kReservedString) + "\n";
const Failures kSupport = {"support of CKM_RSA_X_509", "support of CKM_RSA_PKCS",
                           "support of CKM_ECDSA", "support of CKM_ECDSA_SHA1"};
const Failures kOperations = {"PKCS#1 block",       "PSS block",
                              "51 bytes",           "digest of 20 bytes",
                              "digest of 32 bytes", "digest of 48 bytes",
                              "digest of 64 bytes", "CKM_RSA_PKCS text",
                              "CKM_RSA_X_509 text", "short CKM_RSA_X_509 text",
                              "after little room",  "after 300 bytes",
                              "after nonsense"};
const Failures kDigests = {"digest of 20 bytes", "digest of 32 bytes", "digest of 48 bytes",
                           "digest of 64 bytes"};
const Failures kRawPoints = {"raw point, round 1", "raw point, round 2"};
const Failures kDerPoints = {"DER point, round 1", "DER point, round 2"};
const Failures kPoints = {"raw point, round 1", "DER point, round 1", "raw point, round 2",
                          "DER point, round 2"};
const Failures kLaterPoints = {"raw point, round 2", "DER point, round 2"};

Failures operator+(Failures first, const Failures& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Where the rule failed-lengths is off, a length that means nothing is the standard's.
const Failures kStandardLengths = {"length after CKR_ATTRIBUTE_SENSITIVE: -1",
                                   "length after CKR_ATTRIBUTE_TYPE_INVALID: -1",
                                   "length after CKR_BUFFER_TOO_SMALL: -1"};

const std::vector<Row> kRows = {
    {.name = "WantsReservedString",
     .fault = Fault::kWantsReservedString,
     .rule = "initialisation",
     .bare = {"bring-up: CKR_ARGUMENTS_BAD"},
     .lines = kReserved},
    {.name = "WantsReservedStringOnly",
     .fault = Fault::kWantsReservedStringOnly,
     .rule = "initialisation",
     .bare = {"bring-up: CKR_ARGUMENTS_BAD"},
     .lines = kReserved},
    {.name = "WantsLocks",
     .fault = Fault::kWantsLocks,
     .rule = "initialisation",
     .bare = {"bring-up: CKR_ARGUMENTS_BAD"}},
    {.name = "OneSearchAtATime",
     .fault = Fault::kOneSearchAtATime,
     .rule = "finished-searches",
     .bare = {"public key 01: CKR_OPERATION_ACTIVE"}},
    {.name = "NoOperationDuringSearch",
     .fault = Fault::kNoOperationDuringSearch,
     .rule = "finished-searches",
     .bare = All(kOperations, "CKR_OPERATION_ACTIVE")},
    {.name = "StuckAfterFailure",
     .fault = Fault::kStuckAfterFailure,
     .rule = "worker-sessions",
     .bare =
         All({"after little room", "after 300 bytes", "after nonsense"}, "CKR_OPERATION_ACTIVE"),
     // The caller's little room is nothing that the module gets to see.
     .off = All({"after 300 bytes", "after nonsense"}, "CKR_OPERATION_ACTIVE")},
    {.name = "EmptyMechanismList",
     .fault = Fault::kEmptyMechanismList,
     .rule = "allowed-mechanisms",
     .bare = All(kSupport, "no")},
    {.name = "NoMechanismList",
     .fault = Fault::kNoMechanismList,
     .rule = "allowed-mechanisms",
     .bare = All(kSupport, "CKR_ATTRIBUTE_TYPE_INVALID")},
    {.name = "LongMechanismList",
     .fault = Fault::kLongMechanismList,
     .rule = "allowed-mechanisms",
     .bare = All(kSupport, "CKR_DEVICE_MEMORY")},
    {.name = "EcKeysEncryptAndWrap",
     .fault = Fault::kEcKeysEncryptAndWrap,
     .rule = "ec-usage",
     .bare = {"usage of 02: 'signs decrypts agrees'"}},
    {.name = "EcKeysDoNotDerive",
     .fault = Fault::kEcKeysDoNotDerive,
     .rule = "ec-usage",
     .bare = {"usage of 02: 'signs'"}},
    {.name = "NoPublicKeys",
     .fault = Fault::kNoPublicKeys,
     .rule = "virtual-public-keys",
     .bare = Failures{"usage of 01: ''", "usage of 02: ''"} + All(kSupport, "no")},
    {.name = "LengthMinusOne",
     .fault = Fault::kLengthMinusOne,
     .rule = "failed-lengths",
     .bare = kStandardLengths},
    {.name = "LengthUnchanged",
     .fault = Fault::kLengthUnchanged,
     .rule = "failed-lengths",
     .bare = {"length after CKR_ATTRIBUTE_SENSITIVE: 1024",
              "length after CKR_ATTRIBUTE_TYPE_INVALID: 1024",
              "length after CKR_BUFFER_TOO_SMALL: 8"}},
    {.name = "RawEcdsa",
     .fault = Fault::kRawEcdsa,
     .rule = "ecdsa",
     .bare = All(kDigests, "wrong signature")},
    {.name = "RefusesLongDigests",
     .fault = Fault::kRefusesLongDigests,
     .rule = "ecdsa",
     .bare = All({"digest of 48 bytes", "digest of 64 bytes"}, "CKR_DATA_LEN_RANGE")},
    {.name = "HashesDigests",
     .fault = Fault::kHashesDigests,
     .rule = "ecdsa",
     .bare = {"digest of 20 bytes: wrong signature"}},
    {.name = "NoEcdsaSha1",
     .fault = Fault::kNoEcdsaSha1,
     .rule = "ecdsa",
     .bare = {"support of CKM_ECDSA_SHA1: no", "digest of 20 bytes: CKR_MECHANISM_INVALID"}},
    {.name = "RefusesShortBlocks",
     .fault = Fault::kRefusesShortBlocks,
     .rule = "raw-rsa",
     .bare = All({"51 bytes", "short CKM_RSA_X_509 text"}, "CKR_FUNCTION_FAILED")},
    {.name = "WantsDeriveTemplate",
     .fault = Fault::kWantsDeriveTemplate,
     .rule = "derivation",
     .bare = All(kPoints, "CKR_ARGUMENTS_BAD")},
    {.name = "SecretsAreSensitive",
     .fault = Fault::kSecretsAreSensitive,
     .rule = "derivation",
     .bare = All(kPoints, "CKR_ATTRIBUTE_SENSITIVE")},
    {.name = "RawPointsOnly",
     .fault = Fault::kRawPointsOnly,
     .rule = "derivation",
     .bare = All(kDerPoints, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "DerPointsOnly",
     .fault = Fault::kDerPointsOnly,
     .rule = "derivation",
     .bare = All(kRawPoints, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "FewObjects",
     .fault = Fault::kFewObjects,
     .rule = "derivation",
     .bare = All(kLaterPoints, "CKR_DEVICE_MEMORY")},
    {.name = "SeveralSlots",
     .fault = Fault::kSeveralSlots,
     .rule = "one-slot",
     .bare = {"bring-up: no session"}},
    {.name = "NulPaddedDescription",
     .fault = Fault::kNulPaddedDescription,
     .rule = "one-slot",
     .bare = {"description: has NUL bytes"}},
    {.name = "BlankLabel",
     .fault = Fault::kBlankLabel,
     .rule = "one-slot",
     .bare = {"card number: ''"}},
    {.name = "KeysWantLogin",
     .fault = Fault::kKeysWantLogin,
     .rule = "context-login",
     .bare = All(kOperations, "CKR_USER_NOT_LOGGED_IN")},
    {.name = "NoRawRsa",
     .fault = Fault::kNoRawRsa,
     .rule = "missing-raw-rsa",
     .bare = Failures{"support of CKM_RSA_X_509: no"} +
             All({"PKCS#1 block", "PSS block", "51 bytes", "CKM_RSA_X_509 text",
                  "short CKM_RSA_X_509 text", "after little room"},
                 "CKR_MECHANISM_INVALID"),
     // Nothing but PKCS#1 blocks can be made by CKM_RSA_PKCS.
     .adapted = All({"PSS block", "51 bytes"}, "CKR_MECHANISM_INVALID")},
    {.name = "UmlautInCertificateLabel",
     .fault = Fault::kUmlautInCertificateLabel,
     .rule = "ascii-labels",
     .bare = {"listed: 02"}},
    {.name = "UmlautInPublicKeyLabel",
     .fault = Fault::kUmlautInPublicKeyLabel,
     .rule = "ascii-labels",
     .bare = All({"public key 01", "public key 02"}, "its label is not ASCII")},
    {.name = "OversizeCertificate",
     .fault = Fault::kOversizeCertificate,
     .rule = "oversize-certificates",
     .also_off = "keyless-certificates",
     .bare = {"certificate: CKR_BUFFER_TOO_SMALL"}},
    // The extension reads no more than 20.
    {.name = "ManyCertificatesOfOthers",
     .fault = Fault::kManyCertificatesOfOthers,
     .rule = "keyed-certificates-first",
     .also_off = "keyless-certificates",
     .bare = {"listed: 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 21 22 23"},
     .adapted = {"listed: 01 02 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 21"}},
    {.name = "CertificateOfAnAuthority",
     .fault = Fault::kCertificateOfAnAuthority,
     .rule = "keyless-certificates",
     .bare = {"listed: 01 02 03"}},
};

class Faults : public FaultTest, public testing::WithParamInterface<Row> {};

TEST_P(Faults, BreakTheRoadOnTheModuleItself) {
  control_.fault = GetParam().fault;
  EXPECT_EQ(Road(Module()).Walk(), GetParam().bare);
}

TEST_P(Faults, AreCuredByTheAdapter) {
  control_.fault = GetParam().fault;
  const std::string also_off = GetParam().also_off;
  const std::string off = also_off.empty() ? "" : "rules-off = " + also_off + "\n";
  EXPECT_EQ(Road(Adapter(GetParam().lines + off)).Walk(), GetParam().adapted);
  EXPECT_EQ(control_.wrong_pins, 0);
}

TEST_P(Faults, BreakTheRoadAgainWithoutTheRule) {
  control_.fault = GetParam().fault;
  const std::string also_off = GetParam().also_off;
  const auto library = Adapter(GetParam().lines + "rules-off = " + GetParam().rule +
                               (also_off.empty() ? "" : ", " + also_off) + "\n");
  EXPECT_EQ(Road(library).Walk(), GetParam().off.value_or(GetParam().bare));
}

// The two rules that make searches cheap have no fault that a list of failures could show.
TEST(FaultRows, HaveEveryRuleButThoseOfTheSearchMemory) {
  std::set<std::string> missing;
  for (const RuleName& rule : kRuleNames) missing.emplace(rule.name);
  for (const Row& row : kRows) missing.erase(row.rule);
  EXPECT_THAT(missing, testing::UnorderedElementsAre("search-memory", "renewed-handles"));
}

INSTANTIATE_TEST_SUITE_P(, Faults, testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.name; });

// Without a fault nothing breaks, whatever rule is on or off.
class Faultless : public FaultTest, public testing::WithParamInterface<std::string> {};

TEST_F(Faultless, ModuleIsAllThatTheExtensionWants) {
  EXPECT_EQ(Road(Module()).Walk(), Failures());
}

TEST_F(Faultless, ModuleIsNotSpoiltByTheAdapter) { EXPECT_EQ(Road(Adapter()).Walk(), Failures()); }

TEST_F(Faultless, ModuleIsNotSpoiltByTheStandardProfile) {
  EXPECT_EQ(Road(Adapter("profile = standard\n")).Walk(), Failures());
}

TEST_P(Faultless, ModuleNeedsNoRule) {
  EXPECT_EQ(Road(Adapter("rules-off = " + GetParam() + "\n")).Walk(), Failures());
}

std::vector<std::string> RuleTexts() {
  std::vector<std::string> texts;
  texts.reserve(kRuleNames.size());
  for (const RuleName& rule : kRuleNames) texts.emplace_back(rule.name);
  return texts;
}

INSTANTIATE_TEST_SUITE_P(, Faultless, testing::ValuesIn(RuleTexts()), [](const auto& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace
}  // namespace kelvrin::adapter
