#include "adapter/objects/virtual_keys.h"

#include <gtest/gtest.h>

#include "encoding/testing/certificates.h"
#include "tests/module/memory_module.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

const Bytes kId = {1, 2};
const Bytes kLabel = {'l'};
const Bytes kYes = MemoryObject::Flag(true);
const Bytes kNo = MemoryObject::Flag(false);

class VirtualKeysTest : public testing::Test {
 protected:
  // The attributes of the key that is made of the certificate.
  std::map<CK_ATTRIBUTE_TYPE, Bytes> Attributes(const Bytes& der) {
    const auto handle = keys_.Make(der, kId, kLabel);
    return handle ? keys_.Find(*handle)->attributes : std::map<CK_ATTRIBUTE_TYPE, Bytes>();
  }

  VirtualKeys keys_;
};

TEST_F(VirtualKeysTest, WhatIsNoCertificateOfARsaOrEcKeyGivesNone) {
  for (const Bytes& der : {Bytes(), Bytes{1, 2, 3}, Bytes(5000, 0x30),
                           encoding::MakeCertificate({.key = "ED25519"})}) {
    EXPECT_FALSE(keys_.Make(der, kId, kLabel));
  }
  EXPECT_EQ(keys_.Find(VirtualKeys::kFirstHandle), nullptr);
}

TEST_F(VirtualKeysTest, RsaKeyHasItsModulusAndUses) {
  const auto key = TestRsaKey();
  EXPECT_EQ(Attributes(encoding::MakeCertificateOf(key.get(), {})),
            (std::map<CK_ATTRIBUTE_TYPE, Bytes>{
                {CKA_CLASS, MemoryObject::Number(CKO_PUBLIC_KEY)},
                {CKA_KEY_TYPE, MemoryObject::Number(CKK_RSA)},
                {CKA_TOKEN, kYes},
                {CKA_PRIVATE, kNo},
                {CKA_MODIFIABLE, kNo},
                {CKA_LOCAL, kNo},
                {CKA_ID, kId},
                {CKA_LABEL, kLabel},
                {CKA_SUBJECT, {0x30, 0x12, 0x31, 0x10, 0x30, 0x0e, 0x06, 0x03, 0x55, 0x04,
                               0x03, 0x0c, 0x07, 'S',  'u',  'b',  'j',  'e',  'c',  't'}},
                {CKA_VERIFY, kYes},
                {CKA_VERIFY_RECOVER, kYes},
                {CKA_ENCRYPT, kYes},
                {CKA_WRAP, kYes},
                {CKA_DERIVE, kNo},
                {CKA_MODULUS, NumberOfKey(key.get(), "n")},
                {CKA_MODULUS_BITS, MemoryObject::Number(2048)},
                {CKA_PUBLIC_EXPONENT, {1, 0, 1}},
            }));
}

TEST_F(VirtualKeysTest, EcKeyHasItsCurveAndPointAndNeitherEncryptsNorWraps) {
  const auto key = TestEcKey();
  const auto attributes = Attributes(encoding::MakeCertificateOf(key.get(), {}));
  Bytes point = PointOfKey(key.get());
  point.insert(point.begin(), {0x04, 0x41});
  EXPECT_EQ(attributes.at(CKA_EC_POINT), point);
  EXPECT_EQ(attributes.at(CKA_EC_PARAMS),
            (Bytes{0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07}));
  EXPECT_EQ(attributes.at(CKA_KEY_TYPE), MemoryObject::Number(CKK_EC));
  EXPECT_EQ(attributes.at(CKA_VERIFY), kYes);
  for (const auto use : {CKA_VERIFY_RECOVER, CKA_ENCRYPT, CKA_WRAP, CKA_DERIVE}) {
    EXPECT_EQ(attributes.at(use), kNo) << use;
  }
  EXPECT_FALSE(attributes.contains(CKA_MODULUS));
}

TEST_F(VirtualKeysTest, HandleStaysWithItsCertificateAndId) {
  const Bytes one = encoding::MakeCertificateOf(TestEcKey().get(), {});
  const Bytes another = encoding::MakeCertificateOf(TestEcKey(1).get(), {});
  EXPECT_EQ(keys_.Make(one, kId, kLabel), VirtualKeys::kFirstHandle);
  EXPECT_EQ(keys_.Make(another, kId, kLabel), VirtualKeys::kFirstHandle + 1);
  EXPECT_EQ(keys_.Make(one, {9}, kLabel), VirtualKeys::kFirstHandle + 2);
  EXPECT_EQ(keys_.Make(one, kId, kLabel), VirtualKeys::kFirstHandle);
  EXPECT_EQ(keys_.Find(VirtualKeys::kFirstHandle)->type, CKK_EC);
}

TEST_F(VirtualKeysTest, EndlesslyChangingCertificatesDoNotFillTheMemory) {
  const Bytes der = encoding::MakeCertificateOf(TestEcKey().get(), {});
  for (CK_ULONG i = 0; i < 1024; ++i) keys_.Make(der, MemoryObject::Number(i), kLabel);
  EXPECT_NE(keys_.Find(VirtualKeys::kFirstHandle), nullptr);
  keys_.Make(der, kId, kLabel);
  EXPECT_EQ(keys_.Find(VirtualKeys::kFirstHandle), nullptr);
  EXPECT_NE(keys_.Find(VirtualKeys::kFirstHandle + 1), nullptr);
}

}  // namespace
}  // namespace kelvrin::adapter
