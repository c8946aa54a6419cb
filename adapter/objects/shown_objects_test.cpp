// Which objects a search shows, and the public keys that are made for it.
#include "adapter/objects/testing/token_objects_fixture.h"

namespace kelvrin::adapter {
namespace {

// --- what is hidden ---

TEST_F(TokenObjectsTest, ObjectsWithAnIdOfMoreThan255BytesAreHidden) {
  SwitchOffAll();
  for (const CK_OBJECT_CLASS object_class : {CKO_CERTIFICATE, CKO_PUBLIC_KEY, CKO_PRIVATE_KEY}) {
    const auto longest = AddObject(object_class, Bytes(255, 1));
    AddObject(object_class, Bytes(256, 1));
    const auto without = AddObject(object_class, {});
    Erase(without, CKA_ID);
    EXPECT_EQ(Find(object_class), (Handles{longest, without}));
    EXPECT_EQ(Find(object_class, Bytes(255, 1)), Handles{longest});
    module.ForgetCalls();
    EXPECT_TRUE(Find(object_class, Bytes(256, 1)).empty());
    EXPECT_EQ(module.Count(), 0u) << "the module is not even asked";
  }
}

TEST_F(TokenObjectsTest, OversizeCertificateIsHiddenFromASearchByItsIdToo) {
  const auto small = AddCertificate({1}, Bytes(4096, 1));
  const auto large = AddCertificate({1}, Bytes(4097, 1));
  const auto key = Add(CKO_PRIVATE_KEY, {1}, {{CKA_VALUE, Bytes(5000, 1)}});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Find(CKO_CERTIFICATE, Bytes{1}), Handles{small});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, Bytes{1}), Handles{key});
  rules_.SwitchOff(Rule::kOversizeCertificates);
  EXPECT_EQ(Find(CKO_CERTIFICATE, Bytes{1}), (Handles{small, large}));
}

TEST_F(TokenObjectsTest, CertificatesWithoutRulesAreTheModules) {
  SwitchOffAll();
  const auto large = AddCertificate({1}, Bytes(5000, 1));
  const auto nameless = AddCertificate({});
  AddObject(CKO_PRIVATE_KEY, {});
  EXPECT_EQ(Find(CKO_CERTIFICATE), (Handles{large, nameless}));
}

// --- virtual keys ---

TEST_F(TokenObjectsTest, MissingPublicKeyIsMadeFromTheCertificate) {
  AddCertificate({1}, {1, 2, 3});
  AddCertificate({1});
  const Handles found = Find(CKO_PUBLIC_KEY, Bytes{1});
  ASSERT_EQ(found.size(), 1u);
  const VirtualKey* const key = objects_.FindVirtual(found[0]);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->attributes.at(CKA_ID), Bytes{1});
  EXPECT_EQ(key->attributes.at(CKA_LABEL), Bytes{'x'});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}), found);
  EXPECT_EQ(Find(CKO_PUBLIC_KEY), Handles()) << "of each CKA_ID the first is tried";
}

TEST_F(TokenObjectsTest, NoVirtualKeyWithoutACertificateThatCanBeReadOrWithoutTheRule) {
  AddCertificate({1}, {1, 2, 3});
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, Bytes{1}).empty());
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, Bytes{2}).empty());
  rules_.SwitchOff(Rule::kVirtualPublicKeys);
  AddCertificate({3});
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, Bytes{3}).empty());
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY).empty());
}

TEST_F(TokenObjectsTest, PublicKeyThatCameAfterTheListingIsFound) {
  AddCertificate({1}, {1, 2, 3});
  Find(CKO_CERTIFICATE);
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, Bytes{1}).empty());
  const auto key = AddObject(CKO_PUBLIC_KEY, {1});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}), Handles{key});
}

TEST_F(TokenObjectsTest, FailuresOnTheWayToAVirtualKeyArePassedOn) {
  AddCertificate({1});
  Handles found;
  for (const int searches : {0, 1}) {
    for (int i = 0; i < searches; ++i) module.FailNext("C_FindObjectsInit", CKR_OK);
    module.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
    EXPECT_EQ(TryFind(CKO_PUBLIC_KEY, Bytes{1}, &found), CKR_DEVICE_ERROR);
    EXPECT_TRUE(found.empty());
  }
  module.FailNext("C_FindObjectsInit", CKR_OK);
  module.FailNext("C_FindObjectsInit", CKR_DEVICE_ERROR);
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY).empty()) << "the keys themselves were found";
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}).size(), 1u);
}

TEST_F(TokenObjectsTest, ListOfPublicKeysHoldsTheVirtualOnes) {
  AddCertificate({1});
  AddCertificate({1});
  AddCertificate({2});
  AddCertificate(Bytes(256, 3));
  const auto own = AddObject(CKO_PUBLIC_KEY, {2});
  const Handles found = Find(CKO_PUBLIC_KEY);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0], own);
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{1}), Handles{found[1]});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{2}), Handles{own}) << "the token's own is not replaced";
  CK_OBJECT_CLASS object_class = CKO_PUBLIC_KEY;
  CK_BYTE label = 'x';
  std::array<CK_ATTRIBUTE, 2> wanted = {
      {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_LABEL, &label, 1}}};
  Handles labelled;
  EXPECT_EQ(objects_.Find(session_, wanted, &labelled), CKR_OK);
  EXPECT_EQ(labelled, Handles{own}) << "other searches are the module's";
}

// Set-up asks for the certificates and then for each one's public key.
TEST_F(TokenObjectsTest, SetUpSearchesAsOftenForManyCertificatesAsForFew) {
  for (const bool has_public_keys : {false, true}) {
    for (CK_BYTE id = 1; id <= 20; ++id) {
      if (has_public_keys) {
        AddObject(CKO_PUBLIC_KEY, {id});
      } else {
        AddCertificate({id});
      }
    }
    module.ForgetCalls();
    EXPECT_EQ(Find(CKO_CERTIFICATE).size(), 20u);
    for (CK_BYTE id = 1; id <= 20; ++id) EXPECT_EQ(Find(CKO_PUBLIC_KEY, Bytes{id}).size(), 1u);
    EXPECT_EQ(Searches(), 3u);
    objects_.Forget();
  }
}

}  // namespace
}  // namespace kelvrin::adapter
