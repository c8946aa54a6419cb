// Objects that the extension has no room for, and keys derived on the card.
#include "adapter/testing/behaviour_fixture.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

class OddObjects : public BehaviourTest {
 protected:
  void LogIn() { SetUpAndLogIn(extension, card.pin); }
  CK_RV Agree() {
    Bytes secret;
    return extension.Agree(2, PointOfKey(TestEcKey(7).get()), &secret);
  }

  MemoryCard& card = AddCard();
  Extension extension{Adapter()};
};

TEST_F(OddObjects, LongIdsAreHiddenAndCostNeitherTheOthersNorTheCard) {
  const MemoryKey own = ec;
  for (const std::size_t size : {255U, 256U, 512U, 600U}) {
    card.AddEcKey(Bytes(size, static_cast<CK_BYTE>(size >> 8 | 0x40)));
  }
  LogIn();
  EXPECT_EQ(extension.listed, (Bytes{1, 2, 0x40}));
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(own.private_key)));
}

TEST_F(OddObjects, LongLabelsAreCutAlsoWhereTransliterationMakesThemLonger) {
  std::string umlauts;
  for (int i = 0; i < 100; ++i) umlauts += "\xc3\xa4";
  card.Attribute(rsa.certificate, CKA_LABEL) = MemoryObject::Text(std::string(3000, 'x'));
  card.Attribute(rsa.public_key, CKA_LABEL) = MemoryObject::Text(std::string(3000, 'y'));
  card.Attribute(ec.certificate, CKA_LABEL) = MemoryObject::Text(umlauts);
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  ASSERT_EQ(extension.labels.size(), 2U);
  EXPECT_EQ(extension.labels[0], std::string(127, 'x'));
  EXPECT_EQ(extension.key_labels[1], std::string(127, 'y'));
  EXPECT_LE(extension.labels[1].size(), 127U);
  EXPECT_EQ(extension.labels[1].substr(0, 4), "aeae");
}

TEST_F(OddObjects, DerivedKeysDoNotPileUp) {
  LogIn();
  const std::size_t before = card.objects.size();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Agree(), CKR_OK);
  EXPECT_EQ(card.objects.size(), before + 1);
}

// The caller destroyed it, or it went with the login: the next derivation destroys nothing.
TEST_F(OddObjects, DerivedKeyWhoseHandleNowBelongsToSomethingElseIsLeftAlone) {
  for (const bool logs_out : {false, true}) {
    LogIn();
    ASSERT_EQ(Agree(), CKR_OK);
    const CK_OBJECT_HANDLE derived = module.next_object - 1;
    if (logs_out) {
      EXPECT_EQ(extension.p11->C_Logout(extension.session), CKR_OK);
      ASSERT_EQ(extension.LogIn(card.pin), CKR_OK);
    } else {
      ASSERT_EQ(extension.p11->C_DestroyObject(extension.session, derived), CKR_OK);
    }
    card.objects[derived].attributes = {{CKA_CLASS, MemoryObject::Number(CKO_SECRET_KEY)},
                                        {CKA_TOKEN, MemoryObject::Flag(false)}};
    ASSERT_EQ(Agree(), CKR_OK);
    EXPECT_TRUE(card.objects.contains(derived)) << logs_out;
    extension.Remove();
  }
}

TEST_F(OddObjects, TemplateOfTheCallersOwnIsHandedOn) {
  LogIn();
  CK_OBJECT_HANDLE key = 0;
  ASSERT_EQ(extension.FindKey(2, &key), CKR_OK);
  Bytes point = PointOfKey(TestEcKey(7).get());
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  parameters.kdf = CKD_NULL;
  parameters.pPublicData = point.data();
  parameters.ulPublicDataLen = point.size();
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  std::string label = "mine";
  CK_ATTRIBUTE attribute = {CKA_LABEL, label.data(), label.size()};
  CK_OBJECT_HANDLE derived = 0;
  ASSERT_EQ(extension.p11->C_DeriveKey(extension.session, &mechanism, key, &attribute, 1, &derived),
            CKR_OK);
  EXPECT_EQ(card.Attribute(derived, CKA_LABEL), MemoryObject::Text(label));
}

}  // namespace
}  // namespace kelvrin::adapter
