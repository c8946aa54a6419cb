// What the adapter answers in the module's place, and lengths, none of which is taken on trust.
#include "adapter/objects/attributes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "adapter/testing/card_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

const Bytes kYes = MemoryObject::Flag(true);

class AttributesTest : public CardTest {
 protected:
  CK_OBJECT_HANDLE AddKey(CK_OBJECT_CLASS object_class, CK_KEY_TYPE type,
                          decltype(MemoryObject::attributes) more = {}) {
    more[CKA_KEY_TYPE] = MemoryObject::Number(type);
    return Add(object_class, {1}, std::move(more));
  }
  // A public key that only the adapter has.
  CK_OBJECT_HANDLE MakeVirtual(EVP_PKEY* key) {
    card_.AddCertificate({7}, "M\u00fcller", encoding::MakeCertificateOf(key, {}));
    return Find(CKO_PUBLIC_KEY).at(0);
  }
  CK_RV Get(CK_OBJECT_HANDLE object, std::span<CK_ATTRIBUTE> attributes) {
    return GetAttributes(objects_, session_, object, attributes);
  }
  // One attribute, read into `room` bytes; the length is kept.
  CK_RV Get(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, std::size_t room = 1024) {
    value_.assign(room + 1, 0xee);
    CK_ATTRIBUTE attribute = {type, value_.data(), room};
    const CK_RV result = Get(object, {&attribute, 1});
    EXPECT_EQ(value_.back(), 0xee) << "written past the end";
    length_ = attribute.ulValueLen;
    value_.resize(std::min<std::size_t>(length_, room));
    return result;
  }
  // Its length alone.
  CK_RV GetLength(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    const CK_RV result = Get(object, {&attribute, 1});
    length_ = attribute.ulValueLen;
    return result;
  }
  Bytes Value(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    EXPECT_EQ(Get(object, type), CKR_OK);
    return value_;
  }
  std::string Label(CK_OBJECT_HANDLE object) {
    const Bytes value = Value(object, CKA_LABEL);
    return {value.begin(), value.end()};
  }
  Mechanisms Allowed(CK_OBJECT_HANDLE object) {
    const Bytes value = Value(object, CKA_ALLOWED_MECHANISMS);
    Mechanisms list(value.size() / sizeof(CK_MECHANISM_TYPE));
    if (!value.empty()) std::memcpy(list.data(), value.data(), value.size());
    return list;
  }
  // The slot's mechanisms change, as with another token.
  void Offer(const Mechanisms& mechanisms) {
    card_.mechanisms = mechanisms;
    objects_.Forget();
  }
  // From now on the module answers each read with this, and claims this length.
  void Claim(CK_ULONG length, CK_RV answer) {
    module.over = {};
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV) {
      attribute.ulValueLen = length;
      return answer;
    });
  }

  Bytes value_;
  CK_ULONG length_ = 0;
};

// --- lengths ---

TEST_F(AttributesTest, LengthOfOneAttributeIsNotTakenOnTrust) {
  const auto object = Add(CKO_DATA, {1});
  struct Row {
    const char* name;
    CK_ULONG claimed;
    CK_RV answer;
    CK_RV result;
    CK_ULONG length;
  };
  for (const Row& row :
       {Row{"all the room", 8, CKR_OK, CKR_OK, 8},
        Row{"more than the room", 9, CKR_OK, CKR_BUFFER_TOO_SMALL, 0},
        Row{"-1", CK_UNAVAILABLE_INFORMATION, CKR_OK, CKR_ATTRIBUTE_TYPE_INVALID, 0},
        Row{"left by a refusal", 8, CKR_ATTRIBUTE_TYPE_INVALID, CKR_ATTRIBUTE_TYPE_INVALID, 0},
        Row{"left by a secret", 8, CKR_ATTRIBUTE_SENSITIVE, CKR_ATTRIBUTE_SENSITIVE, 0},
        Row{"left by little room", 8, CKR_BUFFER_TOO_SMALL, CKR_BUFFER_TOO_SMALL, 0},
        Row{"a refusal's own", 9, CKR_ATTRIBUTE_TYPE_INVALID, CKR_ATTRIBUTE_TYPE_INVALID, 0},
        Row{"nothing was read", 8, CKR_OBJECT_HANDLE_INVALID, CKR_OBJECT_HANDLE_INVALID, 8}}) {
    Claim(row.claimed, row.answer);
    EXPECT_EQ(Get(object, CKA_ID, 8), row.result) << row.name;
    EXPECT_EQ(length_, row.length) << row.name;
  }
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE boundless = {CKA_ID, room.data(), CK_UNAVAILABLE_INFORMATION};
  Claim(CK_UNAVAILABLE_INFORMATION, CKR_OK);
  EXPECT_EQ(Get(object, {&boundless, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(AttributesTest, NoAttributeIsSaidToBeLongerThan64MiB) {
  const auto object = Add(CKO_DATA, {1});
  constexpr CK_ULONG kMost = CK_ULONG{1} << 26;
  Claim(kMost, CKR_OK);
  EXPECT_EQ(GetLength(object, CKA_VALUE), CKR_OK);
  EXPECT_EQ(length_, kMost);
  Claim(kMost + 1, CKR_OK);
  EXPECT_EQ(GetLength(object, CKA_VALUE), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length_, 0u);
}

TEST_F(AttributesTest, OneOfSeveralLengthsSpoilsTheReadAndLeavesTheOthers) {
  const auto object = Add(CKO_DATA, {1, 2, 3}, {{CKA_VALUE, {5, 6}}});
  std::array<CK_BYTE, 6> room = {9, 9, 9, 9, 9, 9};
  std::array<CK_ATTRIBUTE, 2> attributes = {{{CKA_ID, room.data(), 2}, {CKA_VALUE, &room[2], 4}}};
  EXPECT_EQ(Get(object, attributes), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attributes[0].ulValueLen, 0u);
  EXPECT_EQ(attributes[1].ulValueLen, 2u);
  EXPECT_EQ(room, (std::array<CK_BYTE, 6>{9, 9, 5, 6, 9, 9}));
  faults::ReadsLengthMinusOne(module, CKA_ID);
  attributes[0].ulValueLen = 2;
  EXPECT_EQ(Get(object, attributes), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attributes[0].ulValueLen, 0u);
  EXPECT_EQ(attributes[1].ulValueLen, 2u);
}

TEST_F(AttributesTest, OwnAnswerThatDoesNotFitLeavesTheBufferAlone) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA, {{CKA_LABEL, {0xfc}}});
  for (const auto& [type, size] :
       {std::pair(CKA_ALLOWED_MECHANISMS, 16u), std::pair(CKA_LABEL, 2u)}) {
    EXPECT_EQ(GetLength(key, type), CKR_OK);
    EXPECT_EQ(length_, size);
    std::array<CK_BYTE, 15> small = {9};
    CK_ATTRIBUTE attribute = {type, small.data(), size - 1};
    EXPECT_EQ(Get(key, {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(attribute.ulValueLen, 0u);
    EXPECT_EQ(small[0], 9);
    EXPECT_EQ(Get(key, type, size), CKR_OK);
  }
}

// --- mechanisms and flags ---

TEST_F(AttributesTest, PublicKeyWithoutListIsAnsweredFromItsTypeAndTheSlot) {
  const auto rsa = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  const auto ec = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  EXPECT_EQ(Allowed(rsa), (Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}));
  EXPECT_EQ(Allowed(ec), (Mechanisms{CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE}));
  EXPECT_EQ(Allowed(AddKey(CKO_PUBLIC_KEY, CKK_DSA)), Mechanisms());
  Offer({CKM_ECDSA});
  EXPECT_EQ(Allowed(ec), (Mechanisms{CKM_ECDSA, CKM_ECDSA_SHA1}));
  EXPECT_EQ(Allowed(rsa), Mechanisms());
  Attribute(ec, CKA_ALLOWED_MECHANISMS) = MemoryObject::Number(CKM_RSA_PKCS);
  EXPECT_EQ(Allowed(ec), (Mechanisms{CKM_RSA_PKCS, CKM_RSA_X_509})) << "its own list is completed";
  rules_.SwitchOff(Rule::kAllowedMechanisms);
  EXPECT_EQ(Get(rsa, CKA_ALLOWED_MECHANISMS), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(AttributesTest, UnreadableMechanismsOfTheSlotAreAFailureWithLengthZero) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  for (const CK_ATTRIBUTE_TYPE type : {CKA_ALLOWED_MECHANISMS, CKA_DERIVE}) {
    module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
    EXPECT_EQ(Get(key, type), CKR_DEVICE_ERROR) << type;
    EXPECT_EQ(length_, 0u) << type;
  }
}

TEST_F(AttributesTest, OtherObjectsAndWithoutTheRuleAllAreTheModules) {
  const std::string label = "\u00fc" + std::string(300, 'x');
  const decltype(MemoryObject::attributes) own = {
      {CKA_ENCRYPT, kYes}, {CKA_WRAP, kYes}, {CKA_DERIVE, kYes}};
  Offer({});
  const auto private_key = AddKey(CKO_PRIVATE_KEY, CKK_EC, own);
  const auto ec = AddKey(CKO_PUBLIC_KEY, CKK_EC, own);
  for (const auto object :
       {AddKey(CKO_PUBLIC_KEY, CKK_RSA, own), private_key, Add(CKO_DATA, {}, own), ec}) {
    if (object == ec) rules_.SwitchOff(Rule::kEcUsage);
    for (const auto& [type, value] : own) EXPECT_EQ(Value(object, type), value) << type;
  }
  Attribute(private_key, CKA_ALLOWED_MECHANISMS) = {};
  EXPECT_EQ(Allowed(private_key), Mechanisms());
  Attribute(private_key, CKA_LABEL) = MemoryObject::Text(label);
  EXPECT_EQ(Label(private_key), label);
}

TEST_F(AttributesTest, MixedTemplateKeepsItsOrderAndItsFailures) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  std::array<std::array<CK_BYTE, 64>, 4> room = {};
  std::array<CK_ATTRIBUTE, 4> attributes = {{{CKA_ENCRYPT, room[0].data(), 64},
                                             {CKA_ID, room[1].data(), 64},
                                             {CKA_DERIVE, room[2].data(), 64},
                                             {CKA_LABEL, room[3].data(), 64}}};
  EXPECT_EQ(Get(key, attributes), CKR_ATTRIBUTE_TYPE_INVALID);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(attributes[i].ulValueLen, 1u);
  EXPECT_EQ(attributes[3].ulValueLen, 0u);
  EXPECT_EQ(room[1][0], 1);
  EXPECT_EQ(room[2][0], CK_TRUE);
  // The adapter's own failure is told where the module has none.
  Attribute(key, CKA_LABEL) = {'x'};
  attributes[0].ulValueLen = 0;
  for (auto& attribute : std::span(attributes).subspan(1)) attribute.ulValueLen = 64;
  EXPECT_EQ(Get(key, attributes), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attributes[0].ulValueLen, 0u);
  EXPECT_EQ(attributes[3].ulValueLen, 1u);
}

TEST_F(AttributesTest, TypeOfAKeyIsReadOncePerCall) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  std::array<CK_BYTE, 2> room = {};
  std::array<CK_ATTRIBUTE, 2> attributes = {{{CKA_ENCRYPT, &room[0], 1}, {CKA_WRAP, &room[1], 1}}};
  EXPECT_EQ(Get(key, attributes), CKR_OK);
  EXPECT_EQ(module.Count(), 2u) << "class and type; for the rest the module is not needed";
}

// --- labels ---

TEST_F(AttributesTest, LabelsOfCertificatesAndPublicKeysAreAsciiOfAtMost127Bytes) {
  const std::string x125(125, 'x');
  struct Row {
    std::string own;
    std::string shown;
    std::string without_rule;  // where ASCII is not asked for
  };
  const std::vector<Row> rows = {
      {"M\u00fcller", "Mueller", "M\u00fcller"},
      {x125 + "yz", x125 + "yz", x125 + "yz"},
      {x125 + "yz!", x125 + "yz", x125 + "yz"},
      // 126 bytes of ASCII, then a character that does not fit as a whole.
      {x125 + "y\u00fc", x125 + "yu", x125 + "y"},
      {x125 + "\u00fcz", x125 + "ue", x125 + "\u00fc"},
      {std::string(4096, 'x'), std::string(127, 'x'), std::string(127, 'x')},
  };
  const auto certificate = Add(CKO_CERTIFICATE, {});
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  for (const bool has_rule : {true, false}) {
    if (!has_rule) rules_.SwitchOff(Rule::kAsciiLabels);
    for (const auto object : {certificate, key}) {
      for (const Row& row : rows) {
        Attribute(object, CKA_LABEL) = MemoryObject::Text(row.own);
        EXPECT_EQ(Label(object), has_rule ? row.shown : row.without_rule) << row.own;
      }
    }
  }
}

// --- virtual keys, moved objects ---

TEST_F(AttributesTest, VirtualKeyIsAnsweredFromItsCertificate) {
  const auto rsa = MakeVirtual(TestRsaKey().get());
  EXPECT_EQ(Label(rsa), "Mueller");
  EXPECT_EQ(Value(rsa, CKA_ENCRYPT), Bytes{CK_TRUE});
  EXPECT_EQ(Value(rsa, CKA_DERIVE), Bytes{CK_FALSE});
  EXPECT_EQ(Allowed(rsa), (Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}));
  card_.objects.clear();
  objects_.Forget();
  for (const RuleName& rule : kRuleNames) {
    if (rule.rule != Rule::kVirtualPublicKeys) rules_.SwitchOff(rule.rule);
  }
  const auto ec = MakeVirtual(TestEcKey().get());
  module.ForgetCalls();
  EXPECT_EQ(Label(ec), "M\u00fcller");
  EXPECT_EQ(Value(ec, CKA_ENCRYPT), Bytes{CK_FALSE});
  EXPECT_EQ(Value(ec, CKA_DERIVE), Bytes{CK_TRUE}) << "as the slot does";
  EXPECT_EQ(Allowed(ec), (Mechanisms{CKM_ECDSA, CKM_ECDH1_DERIVE}));
  EXPECT_EQ(Get(ec, CKA_MODULUS), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length_, 0u);
  EXPECT_EQ(Get(ec, CKA_ID, 0), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(Get(ec, std::span<CK_ATTRIBUTE>()), CKR_OK);
  EXPECT_EQ(module.Count("C_GetAttributeValue"), 0u) << "it is none of the module's";
  EXPECT_EQ(Get(4711, std::span<CK_ATTRIBUTE>()), CKR_OBJECT_HANDLE_INVALID) << "that is";
}

TEST_F(AttributesTest, ObjectThatHasAnotherHandleByNowIsReadUnderThat) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_EC_POINT, {5}}});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}), Handles{key});
  card_.Rehandle(key, 900);
  std::array<CK_BYTE, 2> room = {9, 9};
  std::array<CK_ATTRIBUTE, 2> wanted = {{{CKA_ENCRYPT, &room[0], 1}, {CKA_EC_POINT, &room[1], 1}}};
  EXPECT_EQ(Get(key, wanted), CKR_OK);
  EXPECT_EQ(room, (std::array<CK_BYTE, 2>{CK_FALSE, 5}));
  EXPECT_EQ(wanted[0].ulValueLen, 1u);
}

}  // namespace
}  // namespace kelvrin::adapter
