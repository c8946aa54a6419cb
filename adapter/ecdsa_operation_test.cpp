// ECDSA through a key operation: digests in, DER out.
#include <gtest/gtest.h>

#include <cstddef>

#include "adapter/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

using EcdsaOperationTest = KeyOperationTest;

TEST_F(EcdsaOperationTest, EcdsaSignatureBecomesDer) {
  answer_ = Bytes(64, 0);
  answer_[31] = 0x81;
  answer_[63] = 0x05;
  const Bytes expected = {0x30, 0x07, 0x02, 0x02, 0x00, 0x81, 0x02, 0x01, 0x05};
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDSA_SHA256}) {
    ASSERT_EQ(Init(kSign, type, ec_), CKR_OK);
    EXPECT_EQ(Run(kSign, Bytes(32, 1)), CKR_OK);
    EXPECT_EQ(output_, expected);
    EXPECT_EQ(mechanism_, type == CKM_ECDSA_SHA256 ? CKM_ECDSA_SHA256 : CKM_ECDSA);
  }
}

TEST_F(EcdsaOperationTest, EcdsaSizeIsTheLongestDer) {
  answer_ = Bytes(64, 1);
  ASSERT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_OK);
  EXPECT_EQ(operation_.Run(kSign, input_.data(), 0, nullptr, &size_), CKR_OK);
  EXPECT_EQ(size_, 72u);
  EXPECT_EQ(Run(kSign, Bytes(32, 1), 69), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size_, 70u);
}

TEST_F(EcdsaOperationTest, EcdsaSignatureThatIsDerAlreadyStays) {
  answer_ = EcdsaSignatureToDer(Bytes(64, 0x42));
  ASSERT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(32, 1)), CKR_OK);
  EXPECT_EQ(output_, answer_);
}

TEST_F(EcdsaOperationTest, EcdsaSignatureOfAnotherSizeIsAFailure) {
  for (const std::size_t size : {0u, 1u, 63u, 66u}) {
    answer_ = Bytes(size, 1);
    ASSERT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_OK);
    EXPECT_EQ(Run(kSign, Bytes(32, 1)), CKR_DEVICE_ERROR);
  }
}

TEST_F(EcdsaOperationTest, DigestIsCutToTheCurvesSize) {
  answer_ = Bytes(64, 1);
  Bytes digest(64);
  for (std::size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<CK_BYTE>(i);
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    ASSERT_EQ(Init(kSign, type, ec_), CKR_OK);
    EXPECT_EQ(Run(kSign, digest), CKR_OK);
    EXPECT_EQ(input_, Bytes(digest.begin(), digest.begin() + 32));
  }
  ASSERT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(20, 7)), CKR_OK);
  EXPECT_EQ(input_, Bytes(20, 7));
}

TEST_F(EcdsaOperationTest, CurveSizeIsAskedForWhenTheKeyHidesIt) {
  answer_ = Bytes(96, 1);
  ASSERT_EQ(Init(kSign, CKM_ECDSA, fake_.Add({})), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(64, 7)), CKR_OK);
  EXPECT_EQ(input_.size(), 48u);
}

TEST_F(EcdsaOperationTest, MessageOfAHashingMechanismIsNotCut) {
  answer_ = Bytes(64, 1);
  ASSERT_EQ(Init(kSign, CKM_ECDSA_SHA256, ec_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(100, 7)), CKR_OK);
  EXPECT_EQ(input_.size(), 100u);
}

}  // namespace
}  // namespace kelvrin::adapter
