// Objects and results that the extension has no room for, and keys derived on the card.
#include "adapter/testing/behaviour_fixture.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

class OddObjects : public BehaviourTest {};

TEST_F(OddObjects, LongIdsAreHiddenAndCostNeitherTheOthersNorTheCard) {
  MemoryCard& card = AddCard();
  for (const std::size_t size : {255U, 256U, 512U, 600U}) {
    card.AddEcKey(Bytes(size, static_cast<CK_BYTE>(size >> 8 | 0x40)));
  }
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  EXPECT_EQ(extension.listed, (Bytes{1, 2, 0x40}));
  ASSERT_EQ(extension.LogIn(card.pin), CKR_OK);
  EXPECT_TRUE(extension.SignsWith(card.KeyOf(ec.private_key)));
}

TEST_F(OddObjects, LongLabelsAreCutAlsoWhereTransliterationMakesThemLonger) {
  std::string umlauts;
  for (int i = 0; i < 100; ++i) umlauts += "\xc3\xa4";
  MemoryCard& card = AddCard();
  card.Attribute(rsa.certificate, CKA_LABEL) = MemoryObject::Text(std::string(3000, 'x'));
  card.Attribute(rsa.public_key, CKA_LABEL) = MemoryObject::Text(std::string(3000, 'y'));
  card.Attribute(ec.certificate, CKA_LABEL) = MemoryObject::Text(umlauts);
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  ASSERT_EQ(extension.labels.size(), 2U);
  EXPECT_EQ(extension.labels[0], std::string(127, 'x'));
  EXPECT_EQ(extension.key_labels[1], std::string(127, 'y'));
  EXPECT_LE(extension.labels[1].size(), 127U);
  EXPECT_EQ(extension.labels[1].substr(0, 4), "aeae");
}

TEST_F(OddObjects, ResultsOfWrongLengthAreRefused) {
  MemoryCard& card = AddCard();
  for (const CK_ULONG length : {0U, 257U, 5000U, 1000000U}) {
    module.over = {};
    faults::ResultsOfLength(module, length);
    Extension extension(Adapter("", "lib" + std::to_string(length)));
    SetUpAndLogIn(extension, card.pin);
    Bytes result;
    EXPECT_EQ(extension.Sign(1, CKM_RSA_X_509, {1}, &result), CKR_DEVICE_ERROR) << length;
    EXPECT_EQ(extension.Sign(1, CKM_RSA_PKCS, {1}, &result), CKR_DEVICE_ERROR) << length;
    EXPECT_EQ(extension.Decrypt(1, CKM_RSA_X_509, {1}, &result), CKR_DEVICE_ERROR) << length;
    EXPECT_EQ(extension.Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_DEVICE_ERROR) << length;
  }
}

TEST_F(OddObjects, PlaintextsKeepTheirLength) {
  MemoryCard& card = AddCard();
  faults::DropsLeadingZeros(module);
  Extension extension(Adapter());
  SetUpAndLogIn(extension, card.pin);
  for (const Bytes& text : {Bytes(), Bytes{0, 0, 7}}) {
    Bytes opened = {1};
    EXPECT_EQ(extension.Decrypt(1, CKM_RSA_PKCS, EncryptPkcs1(extension.public_keys[1].get(), text),
                                &opened),
              CKR_OK);
    EXPECT_EQ(opened, text);
  }
}

TEST_F(OddObjects, LongBlockNeverReachesAModuleThatDiesOfIt) {
  MemoryCard& card = AddCard();
  faults::DiesOfLongBlocks(module);
  Extension extension(Adapter());
  SetUpAndLogIn(extension, card.pin);
  Bytes result;
  EXPECT_EQ(extension.Sign(1, CKM_RSA_X_509, Bytes(257), &result), CKR_DATA_LEN_RANGE);
  EXPECT_EQ(extension.Decrypt(1, CKM_RSA_X_509, Bytes(257), &result), CKR_ENCRYPTED_DATA_LEN_RANGE);
}

TEST_F(OddObjects, DerivedKeysDoNotPileUp) {
  MemoryCard& card = AddCard();
  Extension extension(Adapter());
  SetUpAndLogIn(extension, card.pin);
  const std::size_t before = card.objects.size();
  Bytes secret;
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(extension.Agree(2, PointOfKey(TestEcKey(7).get()), &secret), CKR_OK);
  }
  EXPECT_EQ(card.objects.size(), before + 1);
}

TEST_F(OddObjects, DerivedKeyWhoseHandleNowBelongsToSomethingElseIsLeftAlone) {
  MemoryCard& card = AddCard();
  Extension extension(Adapter());
  SetUpAndLogIn(extension, card.pin);
  Bytes secret;
  const Bytes point = PointOfKey(TestEcKey(7).get());
  ASSERT_EQ(extension.Agree(2, point, &secret), CKR_OK);
  const CK_OBJECT_HANDLE derived = module.next_object - 1;
  ASSERT_EQ(extension.p11->C_DestroyObject(extension.session, derived), CKR_OK);
  card.objects[derived].attributes = {{CKA_CLASS, MemoryObject::Number(CKO_SECRET_KEY)},
                                      {CKA_TOKEN, MemoryObject::Flag(false)}};
  ASSERT_EQ(extension.Agree(2, point, &secret), CKR_OK);
  EXPECT_TRUE(card.objects.contains(derived));
}

TEST_F(OddObjects, TemplateOfTheCallersOwnIsHandedOn) {
  MemoryCard& card = AddCard();
  faults::WantsDeriveTemplate(module);
  Extension extension(Adapter());
  SetUpAndLogIn(extension, card.pin);
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
