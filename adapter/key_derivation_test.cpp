#include "adapter/key_derivation.h"

#include <gtest/gtest.h>

#include <vector>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

using Bytes = FakeModule::Bytes;

class KeyDerivationTest : public testing::Test {
 protected:
  CK_RV Derive(Bytes point) {
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    parameters.kdf = CKD_NULL;
    parameters.ulPublicDataLen = point.size();
    parameters.pPublicData = point.data();
    const CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
    return DeriveReadableKey(functions_, 1, mechanism, 2, &key_);
  }
  static Bytes RawPoint() {
    Bytes point(65, 0x11);
    point[0] = 4;
    return point;
  }
  static Bytes DerPoint() {
    Bytes point = {0x04, 0x41};
    const Bytes raw = RawPoint();
    point.insert(point.end(), raw.begin(), raw.end());
    return point;
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  CK_OBJECT_HANDLE key_ = 77;
};

TEST_F(KeyDerivationTest, FailureOfBothFormsGivesTheFirstResult) {
  fake_.FailNext("C_DeriveKey", CKR_MECHANISM_PARAM_INVALID);
  fake_.FailNext("C_DeriveKey", CKR_DEVICE_ERROR);
  EXPECT_EQ(Derive(RawPoint()), CKR_MECHANISM_PARAM_INVALID);
  EXPECT_EQ(fake_.Calls("C_DeriveKey"), 2u);
  EXPECT_EQ(key_, 77u);
}

TEST_F(KeyDerivationTest, InvalidHandleFromTheModuleIsAFailure) {
  functions_.C_DeriveKey = [](CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE, CK_ATTRIBUTE*,
                              CK_ULONG, CK_OBJECT_HANDLE*) { return CK_RV{CKR_OK}; };
  EXPECT_EQ(Derive(RawPoint()), CKR_DEVICE_ERROR);
  EXPECT_EQ(key_, 77u);
}

TEST_F(KeyDerivationTest, NullPointWithALengthNeverReachesTheModule) {
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  parameters.ulPublicDataLen = 65;
  const CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  EXPECT_EQ(DeriveReadableKey(functions_, 1, mechanism, 2, &key_), CKR_MECHANISM_PARAM_INVALID);
  EXPECT_EQ(fake_.Calls("C_DeriveKey"), 0u);
}

TEST_F(KeyDerivationTest, AsksForAReadableSessionSecretOfTheFieldsLength) {
  EXPECT_EQ(Derive(RawPoint()), CKR_OK);
  EXPECT_EQ(fake_.derive_template,
            (std::vector<CK_ATTRIBUTE_TYPE>{CKA_CLASS, CKA_KEY_TYPE, CKA_TOKEN, CKA_SENSITIVE,
                                            CKA_EXTRACTABLE, CKA_VALUE_LEN}));
  EXPECT_EQ(fake_.derive_length, 32u);
  EXPECT_TRUE(fake_.objects.contains(key_));
}

TEST_F(KeyDerivationTest, PointIsHandedOverRawFirst) {
  for (const Bytes& point : {RawPoint(), DerPoint()}) {
    EXPECT_EQ(Derive(point), CKR_OK);
    EXPECT_EQ(fake_.derive_point, RawPoint());
  }
  EXPECT_EQ(fake_.Calls("C_DeriveKey"), 2u);
}

TEST_F(KeyDerivationTest, PointGoesInDerWhenRawIsRefused) {
  fake_.derive = [](const CK_ECDH1_DERIVE_PARAMS& parameters) -> CK_RV {
    return parameters.ulPublicDataLen == 67 ? CKR_OK : CKR_MECHANISM_PARAM_INVALID;
  };
  for (const Bytes& point : {RawPoint(), DerPoint()}) {
    EXPECT_EQ(Derive(point), CKR_OK);
    EXPECT_EQ(fake_.derive_point, DerPoint());
  }
}

TEST_F(KeyDerivationTest, UnknownPointGoesAsItIsWithoutALength) {
  const Bytes point(33, 0x77);
  EXPECT_EQ(Derive(point), CKR_OK);
  EXPECT_EQ(fake_.derive_point, point);
  EXPECT_EQ(fake_.derive_template.size(), 5u);
}

TEST_F(KeyDerivationTest, OtherMechanismsKeepTheirParameters) {
  Bytes parameters = {1, 2, 3};
  const CK_MECHANISM mechanism = {CKM_DH_PKCS_DERIVE, parameters.data(), parameters.size()};
  EXPECT_EQ(DeriveReadableKey(functions_, 1, mechanism, 2, &key_), CKR_OK);
  EXPECT_EQ(fake_.derive_template.size(), 5u);
}

}  // namespace
}  // namespace kelvrin::adapter
