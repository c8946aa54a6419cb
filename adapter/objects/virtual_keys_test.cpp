#include "adapter/objects/virtual_keys.h"

#include <gtest/gtest.h>

#include "encoding/testing/certificates.h"
#include "tests/module/memory_module.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using Attributes = std::map<CK_ATTRIBUTE_TYPE, Bytes>;

const Bytes kId = {1, 2};
const Bytes kLabel = {'l'};
const Bytes kYes = MemoryObject::Flag(true);
const Bytes kNo = MemoryObject::Flag(false);

Bytes CertificateOf(const TestKey& key) { return encoding::MakeCertificateOf(key.get(), {}); }

// The attributes of a key that is made of a certificate.
Attributes AttributesOf(const TestKey& key) {
  VirtualKeys keys;
  return keys.Find(keys.Make(CertificateOf(key), kId, kLabel).value())->attributes;
}

TEST(VirtualKeysTest, WhatIsNoCertificateOfARsaOrEcKeyGivesNone) {
  VirtualKeys keys;
  for (const Bytes& der :
       {Bytes(), Bytes{1, 2, 3}, encoding::MakeCertificate({.key = "ED25519"})}) {
    EXPECT_FALSE(keys.Make(der, kId, kLabel)) << der.size();
  }
  EXPECT_EQ(keys.Find(VirtualKeys::kFirstHandle), nullptr);
}

TEST(VirtualKeysTest, KeysHaveTheirNumbersAndUses) {
  const auto rsa = TestRsaKey();
  const Attributes common = {
      {CKA_CLASS, MemoryObject::Number(CKO_PUBLIC_KEY)},
      {CKA_TOKEN, kYes},
      {CKA_PRIVATE, kNo},
      {CKA_MODIFIABLE, kNo},
      {CKA_LOCAL, kNo},
      {CKA_ID, kId},
      {CKA_LABEL, kLabel},
      {CKA_SUBJECT, {0x30, 0x12, 0x31, 0x10, 0x30, 0x0e, 0x06, 0x03, 0x55, 0x04,
                     0x03, 0x0c, 0x07, 'S',  'u',  'b',  'j',  'e',  'c',  't'}},
      {CKA_VERIFY, kYes},
      {CKA_DERIVE, kNo}};
  Attributes of_rsa = {{CKA_KEY_TYPE, MemoryObject::Number(CKK_RSA)},
                       {CKA_VERIFY_RECOVER, kYes},
                       {CKA_ENCRYPT, kYes},
                       {CKA_WRAP, kYes},
                       {CKA_MODULUS, NumberOfKey(rsa.get(), "n")},
                       {CKA_MODULUS_BITS, MemoryObject::Number(2048)},
                       {CKA_PUBLIC_EXPONENT, {1, 0, 1}}};
  of_rsa.insert(common.begin(), common.end());
  EXPECT_EQ(AttributesOf(rsa), of_rsa);

  const auto ec = TestEcKey();
  Bytes point = PointOfKey(ec.get());
  point.insert(point.begin(), {0x04, 0x41});
  Attributes of_ec = {{CKA_KEY_TYPE, MemoryObject::Number(CKK_EC)},
                      {CKA_VERIFY_RECOVER, kNo},
                      {CKA_ENCRYPT, kNo},
                      {CKA_WRAP, kNo},
                      {CKA_EC_PARAMS, {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07}},
                      {CKA_EC_POINT, point}};
  of_ec.insert(common.begin(), common.end());
  EXPECT_EQ(AttributesOf(ec), of_ec);
}

TEST(VirtualKeysTest, HandleStaysWithItsCertificateAndId) {
  VirtualKeys keys;
  const Bytes one = CertificateOf(TestEcKey());
  EXPECT_EQ(keys.Make(one, kId, kLabel), VirtualKeys::kFirstHandle);
  EXPECT_EQ(keys.Make(CertificateOf(TestEcKey(1)), kId, kLabel), VirtualKeys::kFirstHandle + 1);
  EXPECT_EQ(keys.Make(one, {9}, kLabel), VirtualKeys::kFirstHandle + 2);
  EXPECT_EQ(keys.Make(one, kId, kLabel), VirtualKeys::kFirstHandle);
  EXPECT_EQ(keys.Find(VirtualKeys::kFirstHandle)->type, CKK_EC);
}

TEST(VirtualKeysTest, EndlesslyChangingCertificatesDoNotFillTheMemory) {
  VirtualKeys keys;
  const Bytes der = CertificateOf(TestEcKey());
  for (CK_ULONG i = 0; i < 1024; ++i) keys.Make(der, MemoryObject::Number(i), kLabel);
  EXPECT_NE(keys.Find(VirtualKeys::kFirstHandle), nullptr);
  keys.Make(der, kId, kLabel);
  EXPECT_EQ(keys.Find(VirtualKeys::kFirstHandle), nullptr);
  EXPECT_NE(keys.Find(VirtualKeys::kFirstHandle + 1), nullptr);
}

}  // namespace
}  // namespace kelvrin::adapter
