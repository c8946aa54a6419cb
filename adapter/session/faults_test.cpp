// The adapter in front of modules that differ from the standard, or from what the extension wants,
// each in one way: the extension's road works, and where a switchable rule cures the difference it
// breaks when that rule is switched off.
#include <algorithm>
#include <functional>
#include <ostream>
#include <set>

#include "adapter/config/rules.h"
#include "adapter/testing/behaviour_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using Failures = std::vector<std::string>;

// A module with a card that has both keys.
struct Ground {
  MemoryModule& module;
  MemoryCard& card;
  MemoryKey rsa, ec;

  void Set(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, const Extension::Bytes& value) const {
    card.Attribute(object, type) = value;
  }
  void Offer(std::vector<CK_MECHANISM_TYPE> mechanisms) const {
    card.mechanisms = std::move(mechanisms);
    for (const CK_OBJECT_HANDLE key :
         {rsa.public_key, rsa.private_key, ec.public_key, ec.private_key}) {
      card.objects.at(key).attributes.erase(CKA_ALLOWED_MECHANISMS);
    }
  }
  // A certificate without a key, long enough or an authority's.
  void AddCertificate(CK_BYTE id, const encoding::CertificateWish& options) const {
    card.AddCertificate({id}, "Other", encoding::MakeCertificateOf(TestEcKey(5).get(), options));
  }
};

struct Row {
  std::string name;
  std::function<void(const Ground&)> fault;
  std::string rule = {};      // that cures it; none: it is cured always
  std::string also_off = {};  // a rule that would hide the fault
  Failures off = {};          // what fails when the rule is off
  Failures adapted = {};      // what no rule can cure
  std::string lines = {};     // of the configuration
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

// The same result for several steps.
Failures All(const Failures& steps, const std::string& result) {
  Failures failures;
  for (const std::string& step : steps) failures.push_back(std::string(step).append(": " + result));
  return failures;
}

Failures operator+(Failures first, const Failures& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

const Failures kSupport = {"support of CKM_RSA_X_509", "support of CKM_RSA_PKCS",
                           "support of CKM_ECDSA", "support of CKM_ECDSA_SHA1"};
const Failures kOperations = {"PKCS#1 block",       "PSS block",
                              "51 bytes",           "digest of 20 bytes",
                              "digest of 32 bytes", "digest of 48 bytes",
                              "digest of 64 bytes", "CKM_RSA_PKCS text",
                              "CKM_RSA_X_509 text", "short CKM_RSA_X_509 text"};
const Failures kAfter = {"after little room", "after 300 bytes", "after nonsense"};
const Failures kDigests = {"digest of 32 bytes", "digest of 48 bytes", "digest of 64 bytes"};
const Failures kRawPoints = {"raw point, round 1", "raw point, round 2"};
const Failures kDerPoints = {"DER point, round 1", "DER point, round 2"};
const Failures kPoints = {"raw point, round 1", "DER point, round 1", "raw point, round 2",
                          "DER point, round 2"};

std::string Numbers(const std::string& before, int first, int last) {
  std::string text = before;
  for (int i = first; i <= last; ++i) text += " " + std::to_string(i);
  return text;
}

// More certificates than the extension reads, before those that have a key.
void AddOthersInFront(const Ground& ground) {
  for (CK_BYTE id = 0x10; id < 0x24; ++id) ground.AddCertificate(id, {});
  for (const CK_OBJECT_HANDLE last : {ground.rsa.certificate, ground.ec.certificate}) {
    ground.card.Rehandle(last, ground.module.next_object++);
  }
}

const std::vector<Row> kRows = {
    {.name = "WantsReserved",
     .fault = [](const Ground& ground) { faults::WantsReserved(ground.module, "where='here'"); },
     .lines = "reserved = where='here'\n"},
    {.name = "WantsLocks", .fault = [](const Ground& g) { faults::WantsLocks(g.module); }},
    {.name = "RefusesLocks", .fault = [](const Ground& g) { faults::RefusesLocks(g.module); }},
    {.name = "RefusesWriting", .fault = [](const Ground& g) { faults::RefusesWriting(g.module); }},
    {.name = "EmptyMechanismListOnce",
     .fault =
         [](const Ground& ground) {
           ground.Offer(ground.card.mechanisms);
           faults::EmptyMechanismListOnce(ground.module);
         },
     // The flag was asked for while the list was empty.
     .adapted = {"usage of 2: 'signs'"}},
    {.name = "OperationsWaitForSearch",
     .fault = [](const Ground& g) { faults::OperationsWaitForSearch(g.module); }},
    {.name = "SearchReplacesSearch",
     .fault = [](const Ground& g) { faults::SearchReplacesSearch(g.module); }},
    {.name = "FailureLeavesOperation",
     .fault = [](const Ground& g) { faults::FailureLeavesOperation(g.module); }},
    {.name = "LeavesLengths", .fault = [](const Ground& g) { faults::LeavesLengths(g.module); }},
    {.name = "WantsExactRoom", .fault = [](const Ground& g) { faults::WantsExactRoom(g.module); }},
    {.name = "RefusesNullInput",
     .fault = [](const Ground& g) { faults::RefusesNullInput(g.module); }},
    {.name = "DropsLeadingZeros",
     .fault = [](const Ground& g) { faults::DropsLeadingZeros(g.module); }},
    {.name = "RenewsHandles", .fault = [](const Ground& g) { faults::RenewsHandles(g.module); }},
    {.name = "NoAllowedMechanisms",
     .fault = [](const Ground& g) { faults::NoAllowedMechanisms(g.module); },
     .rule = "allowed-mechanisms",
     .off = All(kSupport, "CKR_ATTRIBUTE_TYPE_INVALID")},
    {.name = "AllowedMechanismsOfLengthMinusOne",
     .fault =
         [](const Ground& g) { faults::ReadsLengthMinusOne(g.module, CKA_ALLOWED_MECHANISMS); },
     .rule = "allowed-mechanisms",
     .off = All(kSupport, "CKR_ATTRIBUTE_TYPE_INVALID")},
    {.name = "EmptyAllowedMechanisms",
     .fault =
         [](const Ground& g) {
           g.Set(g.rsa.public_key, CKA_ALLOWED_MECHANISMS, {});
           g.Set(g.ec.public_key, CKA_ALLOWED_MECHANISMS, {});
         },
     .rule = "allowed-mechanisms",
     .off = All(kSupport, "no")},
    {.name = "EcKeysEncryptAndWrap",
     .fault =
         [](const Ground& g) {
           g.Set(g.ec.public_key, CKA_ENCRYPT, MemoryObject::Flag(true));
           g.Set(g.ec.public_key, CKA_WRAP, MemoryObject::Flag(true));
         },
     .rule = "ec-usage",
     .off = {"usage of 2: 'signs encrypts wraps agrees'"}},
    {.name = "EcKeysDoNotDerive",
     .fault =
         [](const Ground& g) { g.Set(g.ec.public_key, CKA_DERIVE, MemoryObject::Flag(false)); },
     .rule = "ec-usage",
     .off = {"usage of 2: 'signs'"}},
    {.name = "HidesPublicKeys",
     .fault = [](const Ground& g) { faults::HidesPublicKeys(g.module); },
     .rule = "virtual-public-keys",
     .off = Failures{"usage of 1: ''", "usage of 2: ''"} + All(kSupport, "no")},
    {.name = "RawSignatures",
     .fault = [](const Ground&) {},
     .rule = "ecdsa",
     .off = Failures{"support of CKM_ECDSA_SHA1: no"} +
            All({"digest of 20 bytes"}, "CKR_MECHANISM_INVALID") +
            All(kDigests, "wrong signature")},
    {.name = "DerSignatures", .fault = [](const Ground& g) { faults::DerSignatures(g.module); }},
    {.name = "HashesDigests",
     .fault =
         [](const Ground& g) {
           g.Offer({CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE});
           faults::DerSignatures(g.module);
         },
     .rule = "ecdsa",
     .off = {"digest of 20 bytes: wrong signature"}},
    {.name = "ExactDigestsOnly",
     .fault =
         [](const Ground& g) {
           faults::DerSignatures(g.module);
           faults::ExactDigestsOnly(g.module);
         },
     .rule = "ecdsa",
     .off = Failures{"support of CKM_ECDSA_SHA1: no"} +
            All({"digest of 20 bytes"}, "CKR_MECHANISM_INVALID") +
            All({"digest of 48 bytes", "digest of 64 bytes"}, "CKR_DATA_LEN_RANGE"),
     // 20 bytes are what the caller has.
     .adapted = {"digest of 20 bytes: CKR_DATA_LEN_RANGE"}},
    {.name = "RefusesShortBlocks",
     .fault = [](const Ground& g) { faults::RefusesShortBlocks(g.module); },
     .rule = "raw-rsa",
     .off = All({"51 bytes", "short CKM_RSA_X_509 text"}, "CKR_FUNCTION_FAILED")},
    {.name = "NoRawRsa",
     .fault = [](const Ground& g) { g.Offer({CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDH1_DERIVE}); },
     .rule = "missing-raw-rsa",
     .off = Failures{"support of CKM_RSA_X_509: no"} +
            All({"PKCS#1 block", "PSS block", "51 bytes", "CKM_RSA_X_509 text",
                 "short CKM_RSA_X_509 text", "after little room"},
                "CKR_MECHANISM_INVALID"),
     // Nothing but PKCS#1 blocks can be made by CKM_RSA_PKCS.
     .adapted = All({"PSS block", "51 bytes"}, "CKR_MECHANISM_INVALID")},
    {.name = "WantsDeriveTemplate",
     .fault = [](const Ground& g) { faults::WantsDeriveTemplate(g.module); },
     .rule = "derivation",
     .off = All(kPoints, "CKR_ARGUMENTS_BAD")},
    {.name = "SecretsAreSensitive",
     .fault = [](const Ground& g) { faults::SecretsAreSensitive(g.module); },
     .rule = "derivation",
     .off = All(kPoints, "CKR_ATTRIBUTE_SENSITIVE")},
    {.name = "RawPointsOnly",
     .fault = [](const Ground& g) { faults::PointsOfLength(g.module, 65); },
     .rule = "derivation",
     .off = All(kDerPoints, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "DerPointsOnly",
     .fault = [](const Ground& g) { faults::PointsOfLength(g.module, 67); },
     .rule = "derivation",
     .off = All(kRawPoints, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "RoomForOneDerivedKey",
     .fault = [](const Ground& g) { faults::RoomForDerivedKeys(g.module, 1); },
     .rule = "derivation",
     .off = All({"DER point, round 1", "raw point, round 2", "DER point, round 2"},
                "CKR_DEVICE_MEMORY")},
    {.name = "KeysWantLogin",
     .fault =
         [](const Ground& g) {
           for (const CK_OBJECT_HANDLE key : {g.rsa.private_key, g.ec.private_key}) {
             g.Set(key, CKA_ALWAYS_AUTHENTICATE, MemoryObject::Flag(true));
           }
         },
     .rule = "context-login",
     .off = All(kOperations + kAfter, "CKR_USER_NOT_LOGGED_IN")},
    {.name = "UmlautInCertificateLabel",
     .fault =
         [](const Ground& g) {
           g.Set(g.rsa.certificate, CKA_LABEL, MemoryObject::Text("Schl\xc3\xbcssel"));
         },
     .rule = "ascii-labels",
     .off = {"certificate: its label is not ASCII"}},
    {.name = "UmlautInPublicKeyLabel",
     .fault =
         [](const Ground& g) {
           g.Set(g.rsa.public_key, CKA_LABEL, MemoryObject::Text("Schl\xfcssel"));
         },
     .rule = "ascii-labels",
     .off = {"public key: its label is not ASCII"}},
    {.name = "OversizeCertificate",
     .fault =
         [](const Ground& ground) {
           ground.AddCertificate(3, {.extensions = {{"nsComment", std::string(4200, 'x')}}});
         },
     .rule = "oversize-certificates",
     .also_off = "keyless-certificates",
     .off = {"set-up: CKR_BUFFER_TOO_SMALL"}},
    {.name = "ManyCertificatesOfOthers",
     .fault = AddOthersInFront,
     .rule = "keyed-certificates-first",
     .off = {"usage of 1: ''", "usage of 2: ''", Numbers("listed:", 16, 35)},
     .adapted = {Numbers("listed: 1 2", 16, 33)}},
    {.name = "CertificateOfAnAuthority",
     .fault =
         [](const Ground& g) {
           g.AddCertificate(3, {.extensions = {{"basicConstraints", "CA:TRUE"},
                                               {"keyUsage", "keyCertSign,cRLSign"}}});
         },
     .rule = "keyless-certificates",
     .off = {"listed: 1 2 3"}},
    // Not surely an authority's: the key of this certificate needs the login to be seen.
    {.name = "KeysThatTheLoginShows",
     .fault =
         [](const Ground& g) {
           for (const CK_OBJECT_HANDLE key : {g.rsa.public_key, g.ec.public_key}) {
             g.Set(key, CKA_PRIVATE, MemoryObject::Flag(true));
           }
           g.Set(g.rsa.certificate, CKA_VALUE,
                 encoding::MakeCertificateOf(g.card.KeyOf(g.rsa.private_key),
                                             {.extensions = {{"basicConstraints", "CA:TRUE"}}}));
         }},
};

class Faults : public BehaviourTest, public testing::WithParamInterface<Row> {
 protected:
  Failures WalkWithout(const std::string& rules) {
    MemoryCard& card = AddCard();
    GetParam().fault({module, card, rsa, ec});
    Extension extension(
        Adapter(GetParam().lines + (rules.empty() ? "" : "rules-off = " + rules + "\n")));
    Failures failures = Walk(extension, card.pin);
    EXPECT_EQ(card.tries, 3);
    EXPECT_EQ(module.overlaps, 0);
    return failures;
  }
};

TEST_P(Faults, AreCured) { EXPECT_EQ(WalkWithout(GetParam().also_off), GetParam().adapted); }

TEST_P(Faults, BreakTheRoadWithoutTheRule) {
  if (GetParam().rule.empty()) return;
  const std::string also_off = GetParam().also_off;
  EXPECT_EQ(WalkWithout(GetParam().rule + (also_off.empty() ? "" : ", " + also_off)),
            GetParam().off);
}

TEST(FaultRows, HaveEveryRule) {
  std::set<std::string> missing;
  for (const RuleName& rule : kRuleNames) missing.emplace(rule.name);
  for (const Row& row : kRows) missing.erase(row.rule);
  EXPECT_THAT(missing, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(, Faults, testing::ValuesIn(kRows),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace kelvrin::adapter
