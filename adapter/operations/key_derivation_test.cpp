#include "adapter/operations/key_derivation.h"

#include <map>
#include <vector>

#include "adapter/testing/card_fixture.h"
#include "tests/module/fault_chain.h"
#include "tests/module/faults.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using Attributes = decltype(MemoryObject::attributes);

class KeyDerivationTest : public CardTest {
 protected:
  KeyDerivationTest() {
    faults::Chain<&MemoryEntries::C_DeriveKey>(
        module,
        [this](auto next, CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE base,
               CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* key) {
          mechanism_ = *mechanism;
          if (mechanism->ulParameterLen == sizeof(CK_ECDH1_DERIVE_PARAMS)) {
            const auto& given = *static_cast<CK_ECDH1_DERIVE_PARAMS*>(mechanism->pParameter);
            points_.emplace_back(given.pPublicData, given.pPublicData + given.ulPublicDataLen);
          }
          template_.clear();
          for (CK_ULONG i = 0; i < count; ++i) {
            const auto* const value = static_cast<CK_BYTE*>(attributes[i].pValue);
            template_[attributes[i].type] = Bytes(value, value + attributes[i].ulValueLen);
          }
          return next(session, mechanism, base, attributes, count, key);
        });
  }
  CK_RV Derive(const CK_MECHANISM& mechanism) {
    return DeriveReadableKey(inner_, session_, mechanism, base_, &key_);
  }
  CK_RV Derive(Bytes point) {
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    parameters.kdf = CKD_NULL;
    parameters.ulPublicDataLen = point.size();
    parameters.pPublicData = point.data();
    return Derive({CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)});
  }

  const CK_OBJECT_HANDLE base_ = card_.AddEcKey({1}).private_key;
  const Bytes raw_ = PointOfKey(TestEcKey(5).get());
  const Bytes der_ = [this] {
    Bytes der = raw_;
    der.insert(der.begin(), {0x04, 0x41});
    return der;
  }();
  CK_OBJECT_HANDLE key_ = 77;
  CK_MECHANISM mechanism_ = {};  // what the module was given
  std::vector<Bytes> points_;
  Attributes template_;
};

TEST_F(KeyDerivationTest, AsksForAReadableSessionSecretOfTheCoordinatesLength) {
  EXPECT_EQ(Derive(raw_), CKR_OK);
  EXPECT_EQ(template_, (Attributes{{CKA_CLASS, MemoryObject::Number(CKO_SECRET_KEY)},
                                   {CKA_KEY_TYPE, MemoryObject::Number(CKK_GENERIC_SECRET)},
                                   {CKA_TOKEN, MemoryObject::Flag(false)},
                                   {CKA_SENSITIVE, MemoryObject::Flag(false)},
                                   {CKA_EXTRACTABLE, MemoryObject::Flag(true)},
                                   {CKA_VALUE_LEN, MemoryObject::Number(32)}}));
  EXPECT_EQ(Attribute(key_, CKA_VALUE), DeriveSecret(card_.KeyOf(base_), raw_));
}

TEST_F(KeyDerivationTest, PointGoesRawAtFirstAndThenInDer) {
  for (const Bytes& point : {raw_, der_}) EXPECT_EQ(Derive(point), CKR_OK);
  EXPECT_EQ(points_, (std::vector<Bytes>{raw_, raw_}));
  faults::PointsOfLength(module, der_.size());
  EXPECT_EQ(Derive(raw_), CKR_OK);
  EXPECT_EQ(Attribute(key_, CKA_VALUE_LEN), MemoryObject::Number(32));
  const CK_OBJECT_HANDLE derived = key_;
  module.ForgetCalls();
  module.FailNext("C_DeriveKey", CKR_MECHANISM_PARAM_INVALID);
  module.FailNext("C_DeriveKey", CKR_DEVICE_ERROR);
  EXPECT_EQ(Derive(raw_), CKR_MECHANISM_PARAM_INVALID) << "the answer to the right form";
  EXPECT_EQ(module.Count("C_DeriveKey"), 2u);
  EXPECT_EQ(key_, derived);
}

TEST_F(KeyDerivationTest, NullPointWithALengthNeverReachesTheModule) {
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  parameters.ulPublicDataLen = 65;
  EXPECT_EQ(Derive({CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)}),
            CKR_MECHANISM_PARAM_INVALID);
  EXPECT_EQ(module.Count(), 0u);
  EXPECT_EQ(Derive(Bytes()), CKR_MECHANISM_PARAM_INVALID) << "the module's answer to no point";
  EXPECT_EQ(module.Count(), 1u);
}

TEST_F(KeyDerivationTest, WhatIsNoPointGoesAsItIsWithoutALength) {
  faults::Chain<&MemoryEntries::C_DeriveKey>(module, [](auto next, auto... arguments) {
    next(arguments...);
    return CK_RV{CKR_OK};
  });
  const Bytes point(34, 0x77);
  EXPECT_EQ(Derive(point), CKR_OK);
  EXPECT_EQ(points_, std::vector<Bytes>{point});
  EXPECT_EQ(template_.size(), 5u);
  EXPECT_FALSE(template_.contains(CKA_VALUE_LEN));
  Bytes bytes = {1, 2, 3};
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  for (const CK_MECHANISM& mechanism :
       {CK_MECHANISM{CKM_DH_PKCS_DERIVE, bytes.data(), bytes.size()},
        CK_MECHANISM{CKM_DH_PKCS_DERIVE, &parameters, sizeof(parameters)},
        CK_MECHANISM{CKM_ECDH1_DERIVE, bytes.data(), bytes.size()},
        CK_MECHANISM{CKM_ECDH1_DERIVE, nullptr, 0}}) {
    EXPECT_EQ(Derive(mechanism), CKR_OK);
    EXPECT_EQ(mechanism_.pParameter, mechanism.pParameter);
    EXPECT_EQ(mechanism_.ulParameterLen, mechanism.ulParameterLen);
    EXPECT_EQ(template_.size(), 5u);
  }
}

// Its handle may stand for something else by now.
TEST_F(KeyDerivationTest, OnlyASessionsSecretKeyIsDestroyed) {
  const Bytes secret = MemoryObject::Number(CKO_SECRET_KEY);
  const Bytes no = MemoryObject::Flag(false);
  struct Row {
    const char* name;
    Attributes attributes;
    bool is_destroyed;
  };
  for (const Row& row :
       {Row{"secret key", {{CKA_CLASS, secret}, {CKA_TOKEN, no}}, true},
        Row{"token's", {{CKA_CLASS, secret}, {CKA_TOKEN, MemoryObject::Flag(true)}}, false},
        Row{"private key",
            {{CKA_CLASS, MemoryObject::Number(CKO_PRIVATE_KEY)}, {CKA_TOKEN, no}},
            false},
        Row{"of unknown place", {{CKA_CLASS, secret}}, false},
        Row{"of unknown class", {{CKA_TOKEN, no}}, false}}) {
    const CK_OBJECT_HANDLE object = card_.Add({.attributes = row.attributes});
    DestroyDerivedKey(inner_, session_, object);
    EXPECT_NE(card_.objects.contains(object), row.is_destroyed) << row.name;
  }
}

}  // namespace
}  // namespace kelvrin::adapter
