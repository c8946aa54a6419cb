// What the adapter answers in the module's place.
#include "adapter/objects/testing/attributes_fixture.h"

namespace kelvrin::adapter {
namespace {

const Bytes kYes = MemoryObject::Flag(true);

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
