#include "adapter/token_objects.h"

#include <gtest/gtest.h>

#include <array>

#include "encoding/testing/certificates.h"
#include "adapter/testing/token_objects_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(TokenObjectsTest, FailedSearchForgetsWhatWasLearned) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{key});
  fake_.FailNext("C_FindObjectsInit", CKR_DEVICE_REMOVED);
  Handles found = {99};
  EXPECT_EQ(objects_.Find(session_, {}, &found), CKR_DEVICE_REMOVED);
  EXPECT_TRUE(found.empty());
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Searches(), 3u);
}

TEST_F(TokenObjectsTest, SecondSearchForTheSameKeyIsAnsweredFromMemory) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{key});
  EXPECT_EQ(Searches(), 1u);
}

TEST_F(TokenObjectsTest, ForgettingSearchesAgain) {
  Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  objects_.Forget();
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Searches(), 2u);
}

TEST_F(TokenObjectsTest, WithoutTheMemoryEverySearchIsTheModules) {
  rules_.SwitchOff(Rule::kSearchMemory);
  Add(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Searches(), 2u);
}

TEST_F(TokenObjectsTest, KeyThatIsNotThereIsSearchedForEachTime) {
  EXPECT_TRUE(Find(CKO_PRIVATE_KEY, {1}).empty());
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{key});
}

TEST_F(TokenObjectsTest, KeyWhoseIdWasChangedByAnotherProgramIsNotFoundByItsOldId) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{key});
  fake_.objects[key][CKA_ID] = {2};
  LetTheLookGrowOld();
  EXPECT_TRUE(Find(CKO_PRIVATE_KEY, {1}).empty());
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {2}), Handles{key});
}

TEST_F(TokenObjectsTest, OtherCardInTheSlotIsSearchedAfresh) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{key});
  fake_.slots[0].serial = "0002";
  fake_.objects.erase(key);
  const auto other = Add(CKO_PRIVATE_KEY, {1});
  LetTheLookGrowOld();
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {1}), Handles{other});
}

TEST_F(TokenObjectsTest, PrivateKeyThatAModuleFindsByAnotherIdIsDropped) {
  const auto key = Add(CKO_PRIVATE_KEY, {2});
  functions_.C_FindObjectsInit = [](CK_SESSION_HANDLE session, CK_ATTRIBUTE*, CK_ULONG) {
    return FakeModule::functions().C_FindObjectsInit(session, nullptr, 0);  // finds everything
  };
  EXPECT_TRUE(Find(CKO_PRIVATE_KEY, {1}).empty());
  EXPECT_EQ(Find(CKO_PRIVATE_KEY, {2}), Handles{key});
}

TEST_F(TokenObjectsTest, SearchesForMoreThanClassAndIdAreTheModules) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE id = 1;
  CK_BYTE label = 'x';
  std::array<CK_ATTRIBUTE, 3> wanted = {
      {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}, {CKA_LABEL, &label, 1}}};
  Handles found;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(objects_.Find(session_, wanted, &found), CKR_OK);
    EXPECT_EQ(found, Handles{key});
  }
  EXPECT_EQ(Searches(), 2u);
}

TEST_F(TokenObjectsTest, OddTemplatesAreTheModulesBusiness) {
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  std::array<CK_ATTRIBUTE, 2> wanted = {{{CKA_CLASS, &object_class, 3}, {CKA_CLASS, nullptr, 0}}};
  Handles found;
  EXPECT_EQ(objects_.Find(session_, wanted, &found), CKR_OK);
  EXPECT_EQ(Searches(), 1u);
}

TEST_F(TokenObjectsTest, MissingPublicKeyIsMadeFromTheCertificate) {
  Add(CKO_CERTIFICATE, {1}, MakeCertificate({}));
  const Handles found = Find(CKO_PUBLIC_KEY, {1});
  ASSERT_EQ(found.size(), 1u);
  ASSERT_NE(objects_.FindVirtual(found[0]), nullptr);
  EXPECT_EQ(objects_.FindVirtual(found[0])->attributes.at(CKA_ID), Bytes{1});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, {1}), found);
}

TEST_F(TokenObjectsTest, PublicKeyOfTheTokensOwnIsNotReplaced) {
  Add(CKO_CERTIFICATE, {1}, MakeCertificate({}));
  const auto key = Add(CKO_PUBLIC_KEY, {1});
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, {1}), Handles{key});
  EXPECT_EQ(FindAllOf(CKO_PUBLIC_KEY), Handles{key});
}

TEST_F(TokenObjectsTest, NoVirtualKeyWithoutACertificateThatCanBeRead) {
  Add(CKO_CERTIFICATE, {1}, {1, 2, 3});
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, {1}).empty());
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, {2}).empty());
  FindAllOf(CKO_CERTIFICATE);
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, {1}).empty());
  rules_.SwitchOff(Rule::kVirtualPublicKeys);
  Add(CKO_CERTIFICATE, {3}, MakeCertificate({}));
  EXPECT_TRUE(Find(CKO_PUBLIC_KEY, {3}).empty());
  EXPECT_TRUE(FindAllOf(CKO_PUBLIC_KEY).empty());
}

TEST_F(TokenObjectsTest, ListOfPublicKeysHoldsTheVirtualOnes) {
  Add(CKO_CERTIFICATE, {1}, MakeCertificate({}));
  Add(CKO_CERTIFICATE, {2}, MakeCertificate({}));
  const auto own = Add(CKO_PUBLIC_KEY, {2});
  const Handles found = FindAllOf(CKO_PUBLIC_KEY);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0], own);
  EXPECT_EQ(Find(CKO_PUBLIC_KEY, {1}), Handles{found[1]});
}

// Set-up asks for the certificates and then for each one's public key.
TEST_F(TokenObjectsTest, SetUpSearchesAsOftenForManyCertificatesAsForFew) {
  for (const bool has_public_keys : {false, true}) {
    for (CK_BYTE id = 1; id <= 20; ++id) {
      if (has_public_keys) {
        Add(CKO_PUBLIC_KEY, {id});
      } else {
        Add(CKO_CERTIFICATE, {id}, MakeCertificate({}));
      }
    }
    const std::size_t before = Searches();
    EXPECT_EQ(FindAllOf(CKO_CERTIFICATE).size(), 20u);
    for (CK_BYTE id = 1; id <= 20; ++id) EXPECT_EQ(Find(CKO_PUBLIC_KEY, {id}).size(), 1u);
    EXPECT_EQ(Searches() - before, 3u);
    objects_.Forget();
  }
}

TEST_F(TokenObjectsTest, CertificateWithoutKeyIsHiddenWhereOthersHavePublicKeys) {
  const auto with = Add(CKO_CERTIFICATE, {1}, MakeCertificate({}));
  const auto without = Add(CKO_CERTIFICATE, {2}, MakeCertificate({}));
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE), (Handles{with, without}));
  Add(CKO_PUBLIC_KEY, {3});
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE), (Handles{with, without})) << "that one is nobody's";
  Add(CKO_PUBLIC_KEY, {1});
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE), Handles{with});
}

TEST_F(TokenObjectsTest, CertificateWithoutKeyIsHiddenAfterTheLogin) {
  const auto with = Add(CKO_CERTIFICATE, {1}, MakeCertificate({}));
  const auto without = Add(CKO_CERTIFICATE, {2}, MakeCertificate({}));
  Add(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE), (Handles{with, without})) << "nobody is logged in";
  functions_.C_GetSessionInfo = [](CK_SESSION_HANDLE, CK_SESSION_INFO* info) -> CK_RV {
    info->state = CKS_RO_USER_FUNCTIONS;
    return CKR_OK;
  };
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE), Handles{with});
}

TEST_F(TokenObjectsTest, OversizeCertificateIsHiddenFromASearchByItsIdToo) {
  const auto small = Add(CKO_CERTIFICATE, {1}, Bytes(4096, 1));
  Add(CKO_CERTIFICATE, {1}, Bytes(4097, 1));
  EXPECT_EQ(Find(CKO_CERTIFICATE, {1}), Handles{small});
  rules_.SwitchOff(Rule::kOversizeCertificates);
  EXPECT_EQ(Find(CKO_CERTIFICATE, {1}).size(), 2u);
}

TEST_F(TokenObjectsTest, CertificatesWithoutRulesAreTheModules) {
  rules_ = Rules::Standard();
  Add(CKO_CERTIFICATE, {1}, Bytes(5000, 1));
  Add(CKO_CERTIFICATE, {});
  EXPECT_EQ(FindAllOf(CKO_CERTIFICATE).size(), 2u);
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), 0u);
}

TEST_F(TokenObjectsTest, FactsAreReadOnceForARememberedKey) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  fake_.objects[key][CKA_MODULUS] = Bytes(256, 0xff);
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.Facts(session_, key, true).size, 256u);
  const std::size_t reads = fake_.Calls("C_GetAttributeValue");
  EXPECT_EQ(objects_.Facts(session_, key, true).size, 256u);
  EXPECT_EQ(fake_.Calls("C_GetAttributeValue"), reads);
}

TEST_F(TokenObjectsTest, FactsOfAChangedOrUnknownKeyAreReadAgain) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  fake_.objects[key][CKA_MODULUS] = Bytes(256, 0xff);
  Find(CKO_PRIVATE_KEY, {1});
  EXPECT_EQ(objects_.Facts(session_, key, true).size, 256u);
  fake_.objects[key] = {{CKA_ID, {2}}, {CKA_MODULUS, Bytes(128, 0xff)}};
  LetTheLookGrowOld();
  EXPECT_EQ(objects_.Facts(session_, key, true).size, 128u);
  fake_.objects[key][CKA_MODULUS] = Bytes(512, 0xff);
  EXPECT_EQ(objects_.Facts(session_, key, true).size, 512u);
}

TEST_F(TokenObjectsTest, FactsTellWhetherRawRsaIsLacking) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_FALSE(objects_.Facts(session_, key, true).lacks_raw_rsa);
  const CK_MECHANISM_TYPE own = CKM_RSA_PKCS;
  fake_.objects[key][CKA_ALLOWED_MECHANISMS] = FakeModule::Number(own);
  EXPECT_TRUE(objects_.Facts(session_, key, true).lacks_raw_rsa) << "by the key's own list";
  fake_.objects[key].erase(CKA_ALLOWED_MECHANISMS);
  fake_.slots[0].mechanisms = {CKM_RSA_PKCS};
  objects_.Forget();
  EXPECT_TRUE(objects_.Facts(session_, key, true).lacks_raw_rsa) << "by the slot's list";
  fake_.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
  objects_.Forget();
  EXPECT_FALSE(objects_.Facts(session_, key, true).lacks_raw_rsa) << "unknown is not lacking";
}

TEST_F(TokenObjectsTest, FactsTellWhetherAKeyWantsALogin) {
  const auto key = Add(CKO_PRIVATE_KEY, {1});
  EXPECT_FALSE(objects_.Facts(session_, key, false).wants_login);
  fake_.objects[key][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(false);
  EXPECT_FALSE(objects_.Facts(session_, key, false).wants_login);
  fake_.objects[key][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
  EXPECT_TRUE(objects_.Facts(session_, key, false).wants_login);
}

}  // namespace
}  // namespace kelvrin::adapter
