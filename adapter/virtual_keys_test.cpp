#include "adapter/virtual_keys.h"

#include <gtest/gtest.h>

#include "encoding/testing/certificates.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

const Bytes kId = {1, 2};
const Bytes kLabel = {'l'};

TEST(VirtualKeysTest, WhatIsNoCertificateGivesNoKey) {
  VirtualKeys keys;
  EXPECT_FALSE(keys.Make({}, kId, kLabel));
  EXPECT_FALSE(keys.Make({1, 2, 3}, kId, kLabel));
  EXPECT_FALSE(keys.Make(Bytes(5000, 0x30), kId, kLabel));
  EXPECT_EQ(keys.Find(VirtualKeys::kFirstHandle), nullptr);
}

TEST(VirtualKeysTest, RsaKeyHasItsModulusAndUses) {
  VirtualKeys keys;
  const auto handle = keys.Make(MakeCertificate({.key = "RSA"}), kId, kLabel);
  ASSERT_TRUE(handle);
  const VirtualKey* const key = keys.Find(*handle);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->type, CKK_RSA);
  EXPECT_EQ(key->attributes.at(CKA_CLASS), FakeModule::Number(CKO_PUBLIC_KEY));
  EXPECT_EQ(key->attributes.at(CKA_ID), kId);
  EXPECT_EQ(key->attributes.at(CKA_LABEL), kLabel);
  EXPECT_EQ(key->attributes.at(CKA_MODULUS).size(), 256u);
  EXPECT_EQ(key->attributes.at(CKA_MODULUS_BITS), FakeModule::Number(2048));
  EXPECT_EQ(key->attributes.at(CKA_PUBLIC_EXPONENT), (Bytes{1, 0, 1}));
  for (const CK_ATTRIBUTE_TYPE use : {CKA_VERIFY, CKA_ENCRYPT, CKA_WRAP}) {
    EXPECT_EQ(key->attributes.at(use), FakeModule::Flag(true));
  }
  EXPECT_EQ(key->attributes.at(CKA_DERIVE), FakeModule::Flag(false));
}

TEST(VirtualKeysTest, EcKeyHasItsCurveAndPoint) {
  VirtualKeys keys;
  const auto handle = keys.Make(MakeCertificate({.key = "P-384"}), kId, kLabel);
  ASSERT_TRUE(handle);
  const VirtualKey& key = *keys.Find(*handle);
  EXPECT_EQ(key.type, CKK_EC);
  EXPECT_EQ(CurveSize(key.attributes.at(CKA_EC_PARAMS)), 48u);
  const Bytes& point = key.attributes.at(CKA_EC_POINT);
  ASSERT_EQ(point.size(), 99u);
  EXPECT_EQ((Bytes{point[0], point[1], point[2]}), (Bytes{4, 97, 4}));
  EXPECT_EQ(key.attributes.at(CKA_VERIFY), FakeModule::Flag(true));
  EXPECT_EQ(key.attributes.at(CKA_ENCRYPT), FakeModule::Flag(false));
  EXPECT_FALSE(key.attributes.contains(CKA_MODULUS));
}

TEST(VirtualKeysTest, HandleStaysWithItsCertificate) {
  VirtualKeys keys;
  const Bytes one = MakeCertificate({});
  const auto first = keys.Make(one, kId, kLabel);
  const auto other = keys.Make(MakeCertificate({}), kId, kLabel);
  EXPECT_EQ(keys.Make(one, kId, kLabel), first);
  EXPECT_NE(other, first);
  EXPECT_NE(keys.Make(one, {9}, kLabel), first);
}

TEST(VirtualKeysTest, EndlesslyChangingCertificatesDoNotFillTheMemory) {
  VirtualKeys keys;
  const Bytes der = MakeCertificate({});
  const auto first = keys.Make(der, {}, kLabel);
  for (CK_ULONG i = 0; i < 1100; ++i) keys.Make(der, FakeModule::Number(i), kLabel);
  EXPECT_EQ(keys.Find(*first), nullptr);
  keys.Clear();
  EXPECT_EQ(keys.Find(*first + 1100), nullptr);
}

}  // namespace
}  // namespace kelvrin::adapter
