// The adapter in front of modules that differ from the standard, or from what the extension wants,
// each in one way: the extension's road works, and where a switchable rule cures the difference it
// breaks when that rule is switched off.
#include <algorithm>
#include <functional>
#include <ostream>
#include <set>
#include <type_traits>

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

using Fault = std::function<void(const Ground&)>;

// A fault of the module's own, with what that takes.
template <typename... Options>
Fault Module(void (*fault)(MemoryModule&, Options...), std::type_identity_t<Options>... options) {
  return [=](const Ground& ground) { fault(ground.module, options...); };
}
// Both keys have this value of these attributes in their private, public or certificate object.
Fault Set(CK_OBJECT_HANDLE MemoryKey::* object, const std::vector<CK_ATTRIBUTE_TYPE>& types,
          const Extension::Bytes& value) {
  return [=](const Ground& ground) {
    for (const MemoryKey& key : {ground.rsa, ground.ec}) {
      for (const CK_ATTRIBUTE_TYPE type : types) ground.card.Attribute(key.*object, type) = value;
    }
  };
}
Fault Offer(const std::vector<CK_MECHANISM_TYPE>& mechanisms) {
  return [=](const Ground& ground) { ground.Offer(mechanisms); };
}
Fault AddCertificate(const encoding::CertificateWish& options) {
  return [=](const Ground& ground) { ground.AddCertificate(3, options); };
}
Fault Both(const Fault& one, const Fault& other) {
  return [=](const Ground& ground) {
    one(ground);
    other(ground);
  };
}

struct Row {
  std::string name;
  Fault fault;
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

const Failures kNoList = All(kSupport, "CKR_ATTRIBUTE_TYPE_INVALID");
const auto kPublic = &MemoryKey::public_key;
const auto kPrivate = &MemoryKey::private_key;
const auto kCertificate = &MemoryKey::certificate;

const std::vector<Row> kRows = {
    {.name = "WantsReserved",
     .fault = Module(faults::WantsReserved, "where='here'"),
     .lines = "reserved = where='here'\n"},
    {.name = "WantsLocks", .fault = Module(faults::WantsLocks, CKR_ARGUMENTS_BAD)},
    {.name = "RefusesLocks", .fault = Module(faults::RefusesLocks, CKR_CANT_LOCK)},
    {.name = "RefusesWriting", .fault = Module(faults::RefusesWriting)},
    {.name = "EmptyMechanismListOnce",
     .fault = Both(Offer({CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA, CKM_ECDH1_DERIVE}),
                   Module(faults::EmptyMechanismListOnce)),
     // The flag was asked for while the list was empty.
     .adapted = {"usage of 2: 'signs'"}},
    {.name = "OperationsWaitForSearch", .fault = Module(faults::OperationsWaitForSearch)},
    {.name = "SearchReplacesSearch", .fault = Module(faults::SearchReplacesSearch)},
    {.name = "FailureLeavesOperation", .fault = Module(faults::FailureLeavesOperation)},
    {.name = "LeavesLengths", .fault = Module(faults::LeavesLengths)},
    {.name = "WantsExactRoom", .fault = Module(faults::WantsExactRoom)},
    {.name = "RefusesNullInput", .fault = Module(faults::RefusesNullInput)},
    {.name = "DropsLeadingZeros", .fault = Module(faults::DropsLeadingZeros)},
    {.name = "RenewsHandles", .fault = Module(faults::RenewsHandles)},
    {.name = "NoAllowedMechanisms",
     .fault = Module(faults::NoAllowedMechanisms),
     .rule = "allowed-mechanisms",
     .off = kNoList},
    {.name = "AllowedMechanismsOfLengthMinusOne",
     .fault = Module(faults::ReadsLengthMinusOne, CKA_ALLOWED_MECHANISMS),
     .rule = "allowed-mechanisms",
     .off = kNoList},
    {.name = "EmptyAllowedMechanisms",
     .fault = Set(kPublic, {CKA_ALLOWED_MECHANISMS}, {}),
     .rule = "allowed-mechanisms",
     .off = All(kSupport, "no")},
    {.name = "EcKeysEncryptAndWrap",
     .fault = Set(kPublic, {CKA_ENCRYPT, CKA_WRAP}, MemoryObject::Flag(true)),
     .rule = "ec-usage",
     .off = {"usage of 2: 'signs encrypts wraps agrees'"}},
    {.name = "EcKeysDoNotDerive",
     .fault = Set(kPublic, {CKA_DERIVE}, MemoryObject::Flag(false)),
     .rule = "ec-usage",
     .off = {"usage of 2: 'signs'"}},
    {.name = "HidesPublicKeys",
     .fault = Module(faults::HidesPublicKeys),
     .rule = "virtual-public-keys",
     .off = Failures{"usage of 1: ''", "usage of 2: ''"} + All(kSupport, "no")},
    {.name = "RawSignatures",
     .fault = [](const Ground&) {},
     .rule = "ecdsa",
     .off = Failures{"support of CKM_ECDSA_SHA1: no"} +
            All({"digest of 20 bytes"}, "CKR_MECHANISM_INVALID") +
            All(kDigests, "wrong signature")},
    {.name = "DerSignatures", .fault = Module(faults::DerSignatures)},
    {.name = "HashesDigests",
     .fault =
         Both(Offer({CKM_RSA_PKCS, CKM_RSA_X_509, CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE}),
              Module(faults::DerSignatures)),
     .rule = "ecdsa",
     .off = {"digest of 20 bytes: wrong signature"}},
    {.name = "ExactDigestsOnly",
     .fault = Both(Module(faults::DerSignatures), Module(faults::ExactDigestsOnly)),
     .rule = "ecdsa",
     .off = Failures{"support of CKM_ECDSA_SHA1: no"} +
            All({"digest of 20 bytes"}, "CKR_MECHANISM_INVALID") +
            All({"digest of 48 bytes", "digest of 64 bytes"}, "CKR_DATA_LEN_RANGE"),
     // 20 bytes are what the caller has.
     .adapted = {"digest of 20 bytes: CKR_DATA_LEN_RANGE"}},
    {.name = "RefusesShortBlocks",
     .fault = Module(faults::RefusesShortBlocks),
     .rule = "raw-rsa",
     .off = All({"51 bytes", "short CKM_RSA_X_509 text"}, "CKR_FUNCTION_FAILED")},
    {.name = "NoRawRsa",
     .fault = Offer({CKM_RSA_PKCS, CKM_ECDSA, CKM_ECDH1_DERIVE}),
     .rule = "missing-raw-rsa",
     .off = Failures{"support of CKM_RSA_X_509: no"} +
            All({"PKCS#1 block", "PSS block", "51 bytes", "CKM_RSA_X_509 text",
                 "short CKM_RSA_X_509 text", "after little room"},
                "CKR_MECHANISM_INVALID"),
     // Nothing but PKCS#1 blocks can be made by CKM_RSA_PKCS.
     .adapted = All({"PSS block", "51 bytes"}, "CKR_MECHANISM_INVALID")},
    {.name = "WantsDeriveTemplate",
     .fault = Module(faults::WantsDeriveTemplate, CKR_ARGUMENTS_BAD),
     .rule = "derivation",
     .off = All(kPoints, "CKR_ARGUMENTS_BAD")},
    {.name = "SecretsAreSensitive",
     .fault = Module(faults::SecretsAreSensitive),
     .rule = "derivation",
     .off = All(kPoints, "CKR_ATTRIBUTE_SENSITIVE")},
    {.name = "RawPointsOnly",
     .fault = Module(faults::PointsOfLength, 65),
     .rule = "derivation",
     .off = All({"DER point, round 1", "DER point, round 2"}, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "DerPointsOnly",
     .fault = Module(faults::PointsOfLength, 67),
     .rule = "derivation",
     .off = All({"raw point, round 1", "raw point, round 2"}, "CKR_MECHANISM_PARAM_INVALID")},
    {.name = "RoomForOneDerivedKey",
     .fault = Module(faults::RoomForDerivedKeys, 1),
     .rule = "derivation",
     .off = All({"DER point, round 1", "raw point, round 2", "DER point, round 2"},
                "CKR_DEVICE_MEMORY")},
    {.name = "KeysWantLogin",
     .fault = Set(kPrivate, {CKA_ALWAYS_AUTHENTICATE}, MemoryObject::Flag(true)),
     .rule = "context-login",
     .off = All(kOperations + kAfter, "CKR_USER_NOT_LOGGED_IN")},
    {.name = "UmlautInCertificateLabels",
     .fault = Set(kCertificate, {CKA_LABEL}, MemoryObject::Text("Schl\xc3\xbcssel")),
     .rule = "ascii-labels",
     .off = All({"certificate", "certificate"}, "its label is not ASCII")},
    {.name = "UmlautInPublicKeyLabels",
     .fault = Set(kPublic, {CKA_LABEL}, MemoryObject::Text("Schl\xfcssel")),
     .rule = "ascii-labels",
     .off = All({"public key", "public key"}, "its label is not ASCII")},
    {.name = "OversizeCertificate",
     .fault = AddCertificate({.extensions = {{"nsComment", std::string(4200, 'x')}}}),
     .rule = "oversize-certificates",
     .also_off = "keyless-certificates",
     .off = {"set-up: CKR_BUFFER_TOO_SMALL"}},
    {.name = "ManyCertificatesOfOthers",
     .fault = AddOthersInFront,
     .rule = "keyed-certificates-first",
     .off = {"usage of 1: ''", "usage of 2: ''", Numbers("listed:", 16, 35)},
     .adapted = {Numbers("listed: 1 2", 16, 33)}},
    {.name = "CertificateOfAnAuthority",
     .fault = AddCertificate(
         {.extensions = {{"basicConstraints", "CA:TRUE"}, {"keyUsage", "keyCertSign,cRLSign"}}}),
     .rule = "keyless-certificates",
     .off = {"listed: 1 2 3"}},
    // Not surely an authority's: the key of this certificate needs the login to be seen.
    {.name = "KeysThatTheLoginShows",
     .fault = Both(Set(kPublic, {CKA_PRIVATE}, MemoryObject::Flag(true)),
                   [](const Ground& ground) {
                     ground.card.Attribute(ground.rsa.certificate, CKA_VALUE) =
                         encoding::MakeCertificateOf(
                             ground.card.KeyOf(ground.rsa.private_key),
                             {.extensions = {{"basicConstraints", "CA:TRUE"}}});
                   })},
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
