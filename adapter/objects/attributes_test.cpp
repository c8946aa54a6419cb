#include "adapter/objects/attributes.h"

#include <array>
#include <cstring>
#include <string>

#include "adapter/testing/card_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;
const Bytes kYes = MemoryObject::Flag(true);

class AttributesTest : public CardTest {
 protected:
  CK_OBJECT_HANDLE AddKey(CK_OBJECT_CLASS object_class, CK_KEY_TYPE type,
                          decltype(MemoryObject::attributes) more = {}) {
    more[CKA_KEY_TYPE] = MemoryObject::Number(type);
    return Add(object_class, {1}, std::move(more));
  }
  // A public key that only the adapter has.
  CK_OBJECT_HANDLE MakeVirtual(EVP_PKEY* key, const std::string& label = "x") {
    card_.AddCertificate({7}, label, encoding::MakeCertificateOf(key, {}));
    CK_OBJECT_CLASS object_class = CKO_PUBLIC_KEY;
    CK_ATTRIBUTE wanted = {CKA_CLASS, &object_class, sizeof(object_class)};
    Handles found;
    EXPECT_EQ(objects_.Find(session_, {&wanted, 1}, &found), CKR_OK);
    return found.at(0);
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
  static Bytes List(const Mechanisms& mechanisms) {
    Bytes bytes(mechanisms.size() * sizeof(CK_MECHANISM_TYPE));
    if (!bytes.empty()) std::memcpy(bytes.data(), mechanisms.data(), bytes.size());
    return bytes;
  }
  // The slot's mechanisms change, as with another token.
  void Offer(const Mechanisms& mechanisms) {
    card_.mechanisms = mechanisms;
    objects_.Forget();
  }
  // The module claims this length of every attribute that it reads, whatever comes of it.
  void Claim(CK_ULONG length) {
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV result) {
      attribute.ulValueLen = length;
      return result;
    });
  }

  TokenObjects objects_{inner_, rules_, slot_};
  Bytes value_;
  CK_ULONG length_ = 0;
};

// --- lengths ---

TEST_F(AttributesTest, LengthAfterAFailedReadIsZeroAndNeverMinusOne) {
  const auto object = Add(CKO_DATA, {1, 2, 3});
  std::array<CK_BYTE, 2> small = {9, 9};
  std::array<CK_BYTE, 8> room = {};
  std::array<CK_ATTRIBUTE, 3> attributes = {{{CKA_VALUE, room.data(), room.size()},
                                             {CKA_ID, small.data(), small.size()},
                                             {CKA_VALUE, nullptr, 0}}};
  EXPECT_NE(Get(object, attributes), CKR_OK);
  for (const auto& attribute : attributes) EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small, (std::array<CK_BYTE, 2>{9, 9}));
}

TEST_F(AttributesTest, LengthOfASingleRefusedAttributeIsZeroWhateverTheModuleLeaves) {
  const auto object = Add(CKO_DATA, {1, 2, 3});
  Claim(8);
  for (const CK_RV refusal :
       {CKR_ATTRIBUTE_TYPE_INVALID, CKR_ATTRIBUTE_SENSITIVE, CKR_BUFFER_TOO_SMALL}) {
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE&, CK_ULONG, CK_RV) { return refusal; });
    EXPECT_EQ(Get(object, CKA_VALUE, 8), refusal);
    EXPECT_EQ(length_, 0u);
  }
  module.over = {};
  Claim(5000);
  EXPECT_EQ(Get(object, CKA_VALUE, 8), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length_, 0u) << "more than the room";
  module.over = {};
  EXPECT_EQ(Get(4711, CKA_ID, 8), CKR_OBJECT_HANDLE_INVALID);
  EXPECT_EQ(length_, 8u) << "nothing was read";
}

TEST_F(AttributesTest, SuccessWithALengthThatCannotBeMeantIsAFailure) {
  const auto object = Add(CKO_DATA, {1});
  struct Row {
    CK_ULONG claimed;
    CK_RV result;
  };
  for (const Row& row : {Row{8, CKR_OK}, Row{9, CKR_BUFFER_TOO_SMALL},
                         Row{CK_UNAVAILABLE_INFORMATION, CKR_ATTRIBUTE_TYPE_INVALID}}) {
    module.over = {};
    Claim(row.claimed);
    EXPECT_EQ(Get(object, CKA_ID, 8), row.result) << row.claimed;
    EXPECT_EQ(length_, row.result == CKR_OK ? row.claimed : 0);
  }
  std::array<CK_BYTE, 8> room = {};
  CK_ATTRIBUTE boundless = {CKA_ID, room.data(), CK_UNAVAILABLE_INFORMATION};
  EXPECT_EQ(Get(object, {&boundless, 1}), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(AttributesTest, NoAttributeIsSaidToBeLongerThan64MiB) {
  const auto object = Add(CKO_DATA, {1});
  for (CK_ULONG more = 0; more < 2; ++more) {
    module.over = {};
    Claim((CK_ULONG{1} << 26) + more);
    CK_ATTRIBUTE attribute = {CKA_ID, nullptr, 0};
    EXPECT_EQ(Get(object, {&attribute, 1}), more == 0 ? CKR_OK : CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(attribute.ulValueLen, more == 0 ? CK_ULONG{1} << 26 : 0);
  }
}

TEST_F(AttributesTest, OneOfSeveralLengthsThatCannotBeMeantSpoilsTheRead) {
  const auto object = Add(CKO_DATA, {1}, {{CKA_VALUE, {5, 6}}});
  faults::ReadsLengthMinusOne(module, CKA_ID);
  std::array<CK_BYTE, 8> room = {};
  std::array<CK_ATTRIBUTE, 2> attributes = {{{CKA_ID, room.data(), 4}, {CKA_VALUE, &room[4], 4}}};
  EXPECT_EQ(Get(object, attributes), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(attributes[0].ulValueLen, 0u);
  EXPECT_EQ(attributes[1].ulValueLen, 2u);
}

TEST_F(AttributesTest, UnreadableMechanismsOfTheSlotAreAFailureWithLengthZero) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC);
  for (const CK_ATTRIBUTE_TYPE type : {CKA_ALLOWED_MECHANISMS, CKA_DERIVE}) {
    module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
    EXPECT_EQ(Get(key, type), CKR_DEVICE_ERROR);
    EXPECT_EQ(length_, 0u);
  }
}

TEST_F(AttributesTest, OwnAnswerThatDoesNotFitLeavesTheBufferAlone) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  std::array<CK_BYTE, 15> small = {9};
  CK_ATTRIBUTE attribute = {CKA_ALLOWED_MECHANISMS, small.data(), small.size()};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(attribute.ulValueLen, 0u);
  EXPECT_EQ(small[0], 9);
  attribute = {CKA_ALLOWED_MECHANISMS, nullptr, 0};
  EXPECT_EQ(Get(key, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 16u);
  EXPECT_EQ(Get(key, CKA_ALLOWED_MECHANISMS, 16), CKR_OK);
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
  rules_.SwitchOff(Rule::kAllowedMechanisms);
  EXPECT_EQ(Get(ec, CKA_ALLOWED_MECHANISMS), CKR_ATTRIBUTE_TYPE_INVALID);
}

TEST_F(AttributesTest, ListOfOneToTwentyMechanismsIsCompletedAndOthersReplaced) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_RSA);
  struct Row {
    Bytes own;
    Mechanisms shown;
  };
  const Mechanisms twenty(20, CKM_RSA_PKCS_OAEP);
  const Mechanisms both = {CKM_RSA_X_509, CKM_RSA_PKCS};
  for (const Row& row :
       {Row{List({CKM_RSA_PKCS_OAEP}), {CKM_RSA_PKCS_OAEP}}, Row{List(twenty), twenty},
        Row{List({CKM_RSA_PKCS}), {CKM_RSA_PKCS, CKM_RSA_X_509}}, Row{{}, both},
        Row{Bytes(12, 1), both}, Row{List(Mechanisms(21, CKM_RSA_PKCS)), both}}) {
    Attribute(key, CKA_ALLOWED_MECHANISMS) = row.own;
    EXPECT_EQ(Allowed(key), row.shown);
  }
}

TEST_F(AttributesTest, ListOfAPrivateKeyIsTheModules) {
  const auto key = AddKey(CKO_PRIVATE_KEY, CKK_RSA, {{CKA_ALLOWED_MECHANISMS, {}}});
  EXPECT_EQ(Allowed(key), Mechanisms());
}

TEST_F(AttributesTest, EcPublicKeyNeitherEncryptsNorWrapsAndDerivesAsTheSlotDoes) {
  const auto key =
      AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_ENCRYPT, kYes}, {CKA_WRAP, kYes}, {CKA_VERIFY, kYes}});
  struct Row {
    CK_ATTRIBUTE_TYPE type;
    CK_BYTE value;
  };
  for (const Row& row : {Row{CKA_ENCRYPT, CK_FALSE}, Row{CKA_WRAP, CK_FALSE},
                         Row{CKA_VERIFY, CK_TRUE}, Row{CKA_DERIVE, CK_TRUE}}) {
    EXPECT_EQ(Value(key, row.type), Bytes{row.value}) << row.type;
  }
  Offer({CKM_ECDSA});
  EXPECT_EQ(Value(key, CKA_DERIVE), Bytes{CK_FALSE});
}

TEST_F(AttributesTest, FlagsOfOtherObjectsAndWithoutTheRuleAreTheModules) {
  const decltype(MemoryObject::attributes) flags = {
      {CKA_ENCRYPT, kYes}, {CKA_WRAP, kYes}, {CKA_DERIVE, kYes}};
  Offer({});
  const auto ec = AddKey(CKO_PUBLIC_KEY, CKK_EC, flags);
  for (const auto object : {AddKey(CKO_PUBLIC_KEY, CKK_RSA, flags),
                            AddKey(CKO_PRIVATE_KEY, CKK_EC, flags), Add(CKO_DATA, {}, flags), ec}) {
    if (object == ec) rules_.SwitchOff(Rule::kEcUsage);
    for (const auto& [type, value] : flags) EXPECT_EQ(Value(object, type), kYes);
  }
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
  EXPECT_EQ(attributes[1].type, CKA_ID);
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
      {"M?ller", "M?ller", "M?ller"},
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
        EXPECT_EQ(Label(object), has_rule ? row.shown : row.without_rule);
      }
    }
  }
}

TEST_F(AttributesTest, LengthOfALabelIsThatOfTheTextShown) {
  const auto object = Add(CKO_CERTIFICATE, {}, {{CKA_LABEL, {0xfc}}});
  CK_ATTRIBUTE attribute = {CKA_LABEL, nullptr, 0};
  EXPECT_EQ(Get(object, {&attribute, 1}), CKR_OK);
  EXPECT_EQ(attribute.ulValueLen, 2u);
  EXPECT_EQ(Get(object, CKA_LABEL, 1), CKR_BUFFER_TOO_SMALL);
}

TEST_F(AttributesTest, LabelsOfOtherObjectsAreTheModules) {
  const std::string label = "\u00fc" + std::string(300, 'x');
  const auto key = AddKey(CKO_PRIVATE_KEY, CKK_RSA, {{CKA_LABEL, MemoryObject::Text(label)}});
  EXPECT_EQ(Label(key), label);
}

// --- virtual keys, moved objects ---

TEST_F(AttributesTest, VirtualKeyIsAnsweredFromItsCertificate) {
  for (const RuleName& rule : kRuleNames) {
    if (rule.rule != Rule::kVirtualPublicKeys) rules_.SwitchOff(rule.rule);
  }
  const auto key = MakeVirtual(TestEcKey().get(), "M\u00fcller");
  module.ForgetCalls();
  EXPECT_EQ(Value(key, CKA_ID), Bytes{7});
  EXPECT_EQ(Value(key, CKA_ENCRYPT), Bytes{CK_FALSE});
  EXPECT_EQ(Value(key, CKA_DERIVE), Bytes{CK_TRUE}) << "as the slot does";
  EXPECT_EQ(Allowed(key), (Mechanisms{CKM_ECDSA, CKM_ECDH1_DERIVE}));
  EXPECT_EQ(Label(key), "M\u00fcller");
  EXPECT_EQ(Get(key, CKA_MODULUS), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length_, 0u);
  EXPECT_EQ(Get(key, CKA_ID, 0), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(Get(key, std::span<CK_ATTRIBUTE>()), CKR_OK);
  EXPECT_EQ(module.Count("C_GetAttributeValue"), 0u) << "it is none of the module's";
}

TEST_F(AttributesTest, VirtualKeysLabelAndFlagsFollowTheRules) {
  const auto key = MakeVirtual(TestRsaKey().get(), "M\u00fcller");
  EXPECT_EQ(Label(key), "Mueller");
  EXPECT_EQ(Value(key, CKA_ENCRYPT), Bytes{CK_TRUE});
  EXPECT_EQ(Value(key, CKA_DERIVE), Bytes{CK_FALSE});
  EXPECT_EQ(Allowed(key), (Mechanisms{CKM_RSA_X_509, CKM_RSA_PKCS}));
}

TEST_F(AttributesTest, ObjectThatHasAnotherHandleByNowIsReadUnderThat) {
  const auto key = AddKey(CKO_PUBLIC_KEY, CKK_EC, {{CKA_EC_POINT, {5}}});
  CK_OBJECT_CLASS object_class = CKO_PUBLIC_KEY;
  CK_BYTE id = 1;
  std::array<CK_ATTRIBUTE, 2> named = {
      {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}}};
  Handles found;
  EXPECT_EQ(objects_.Find(session_, named, &found), CKR_OK);
  card_.Rehandle(key, 900);
  std::array<CK_BYTE, 2> room = {9, 9};
  std::array<CK_ATTRIBUTE, 2> wanted = {{{CKA_ENCRYPT, &room[0], 1}, {CKA_EC_POINT, &room[1], 1}}};
  EXPECT_EQ(Get(key, wanted), CKR_OK);
  EXPECT_EQ(room, (std::array<CK_BYTE, 2>{CK_FALSE, 5}));
  EXPECT_EQ(wanted[0].ulValueLen, 1u);
}

TEST_F(AttributesTest, AskingAnUnknownObjectForNothingIsTheModulesBusiness) {
  EXPECT_EQ(Get(4711, std::span<CK_ATTRIBUTE>()), CKR_OBJECT_HANDLE_INVALID);
}

}  // namespace
}  // namespace kelvrin::adapter
