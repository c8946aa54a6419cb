#include "adapter/key_operation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "adapter/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(KeyOperationTest, WithoutInitNothingReachesTheModule) {
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(operation_.SignUpdate(nullptr, 0), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(operation_.DecryptUpdate(nullptr, 0, nullptr, nullptr), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(operation_.Final(kSign, nullptr, nullptr), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kDecrypt, {1}), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(fake_.Calls("C_Sign") + fake_.Calls("C_Decrypt"), 0u);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
}

TEST_F(KeyOperationTest, InitFailureIsPassedOnAndLeavesNothingBehind) {
  EXPECT_EQ(operation_.Init(kSign, nullptr, rsa_), CKR_ARGUMENTS_BAD);
  fake_.FailNext("C_SignInit", CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_KEY_HANDLE_INVALID);
  EXPECT_TRUE(fake_.sessions.empty());
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(KeyOperationTest, FailedOperationDoesNotStandInTheWayOfTheNext) {
  for (const auto kind : {kSign, kDecrypt}) {
    ASSERT_EQ(Init(kind, CKM_RSA_PKCS, rsa_), CKR_OK);
    result_ = CKR_DEVICE_ERROR;
    EXPECT_EQ(Run(kind, {1}), CKR_DEVICE_ERROR);
    EXPECT_TRUE(fake_.sessions.empty());
    result_ = CKR_OK;
    EXPECT_EQ(Init(kind, CKM_RSA_PKCS, rsa_), CKR_OK);
    EXPECT_EQ(Run(kind, {1}), CKR_OK);
    EXPECT_EQ(output_, answer_);
  }
}

TEST_F(KeyOperationTest, WorkerThatStillHoldsAnOperationIsReplaced) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  ASSERT_EQ(Run(kSign, {1}), CKR_OK);
  fake_.sessions.begin()->second.operation = CKM_RSA_PKCS;
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_OpenSession"), 2u);
  EXPECT_EQ(fake_.sessions.size(), 1u);
}

TEST_F(KeyOperationTest, OperationUnderWayIsNotReplaced) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  EXPECT_EQ(mechanism_, CKM_RSA_PKCS);
}

TEST_F(KeyOperationTest, SmallBufferStaysUntouchedAndLosesNothing) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size_, 3u);
  EXPECT_EQ(output_, (Bytes{0xee, 0xee}));
  EXPECT_EQ(Run(kSign, {1}, 3), CKR_OK);
  EXPECT_EQ(output_, answer_);
  EXPECT_EQ(fake_.Calls("C_Sign"), 1u);
}

TEST_F(KeyOperationTest, AfterASmallBufferANewOperationMayBegin) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  ASSERT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  answer_ = {9};
  EXPECT_EQ(Run(kDecrypt, {1}), CKR_OK);
  EXPECT_EQ(output_, answer_);
}

TEST_F(KeyOperationTest, AskingForTheSizeKeepsTheOperation) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  const CK_BYTE data = 1;
  CK_ULONG size = 0;
  EXPECT_EQ(operation_.Run(kSign, &data, 1, nullptr, &size), CKR_OK);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
}

TEST_F(KeyOperationTest, MissingArgumentsEndTheOperation) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.Run(kSign, nullptr, 1, nullptr, &size_), CKR_ARGUMENTS_BAD);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.Run(kSign, nullptr, 0, output_.data(), nullptr), CKR_ARGUMENTS_BAD);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.SignUpdate(nullptr, 1), CKR_ARGUMENTS_BAD);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.Final(kDecrypt, output_.data(), nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(KeyOperationTest, ResultThatClaimsMoreThanItsRoomIsAFailure) {
  fake_.claimed_excess = 1 << 20;
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_DEVICE_ERROR);
  EXPECT_EQ(output_, Bytes(1024, 0xee));
  fake_.claimed_excess = CK_ULONG{1} << 40;
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.Run(kSign, input_.data(), 1, nullptr, &size_), CKR_DEVICE_ERROR);
}

TEST_F(KeyOperationTest, LongResultsGetTheRoomTheyNeed) {
  answer_ = Bytes(100000, 0x55);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kDecrypt, {1}, answer_.size()), CKR_OK);
  EXPECT_EQ(output_, answer_);
}

TEST_F(KeyOperationTest, EmptyInputReachesTheModuleAsAValidPointer) {
  for (const auto type : {CKM_RSA_PKCS, CKM_ECDSA}) {
    ASSERT_EQ(Init(kSign, type, type == CKM_RSA_PKCS ? rsa_ : ec_), CKR_OK);
    output_.assign(1024, 0);
    size_ = output_.size();
    answer_ = Bytes(64, 1);
    EXPECT_EQ(operation_.Run(kSign, nullptr, 0, output_.data(), &size_), CKR_OK);
    EXPECT_TRUE(input_.empty());
  }
}

TEST_F(KeyOperationTest, RawRsaInputIsPaddedOnTheLeft) {
  for (const auto kind : {kSign, kDecrypt}) {
    ASSERT_EQ(Init(kind, CKM_RSA_X_509, rsa_), CKR_OK);
    EXPECT_EQ(Run(kind, Bytes(51, 0x77)), CKR_OK);
    Bytes expected(256, 0);
    std::fill(expected.begin() + 205, expected.end(), CK_BYTE{0x77});
    EXPECT_EQ(input_, expected);
    ASSERT_EQ(Init(kind, CKM_RSA_X_509, rsa_), CKR_OK);
    EXPECT_EQ(Run(kind, Bytes(256, 0x77)), CKR_OK);
    EXPECT_EQ(input_, Bytes(256, 0x77));
    ASSERT_EQ(Init(kind, CKM_RSA_X_509, rsa_), CKR_OK);
    EXPECT_EQ(Run(kind, {}), CKR_OK);
    EXPECT_EQ(input_, Bytes(256, 0));
  }
}

TEST_F(KeyOperationTest, RawRsaInputLongerThanTheModulusNeverReachesTheModule) {
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(257, 0)), CKR_DATA_LEN_RANGE);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kDecrypt, Bytes(257, 0)), CKR_ENCRYPTED_DATA_LEN_RANGE);
  EXPECT_EQ(fake_.Calls("C_Sign") + fake_.Calls("C_Decrypt"), 0u);
  EXPECT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
}

TEST_F(KeyOperationTest, ModulusLengthIsAskedForWhenTheKeyHidesIt) {
  const auto hidden = fake_.Add({});
  answer_ = Bytes(128, 5);
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, hidden), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(129, 1)), CKR_DATA_LEN_RANGE);
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, hidden), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(51, 1)), CKR_OK);
  EXPECT_EQ(input_.size(), 128u);
}

TEST_F(KeyOperationTest, PartsRunOnTheWorkerAndEndInOneResult) {
  answer_ = Bytes(64, 0x01);
  ASSERT_EQ(Init(kSign, CKM_ECDSA_SHA256, ec_), CKR_OK);
  CK_BYTE part = 1;
  EXPECT_EQ(operation_.SignUpdate(&part, 1), CKR_OK);
  EXPECT_EQ(operation_.SignUpdate(nullptr, 0), CKR_OK);
  output_.assign(100, 0);
  size_ = 10;
  EXPECT_EQ(operation_.Final(kSign, output_.data(), &size_), CKR_BUFFER_TOO_SMALL);
  size_ = 100;
  EXPECT_EQ(operation_.Final(kSign, output_.data(), &size_), CKR_OK);
  EXPECT_EQ(size_, 70u);
  EXPECT_EQ(fake_.Calls("C_SignFinal"), 1u);
}

TEST_F(KeyOperationTest, FailedPartEndsTheOperation) {
  ASSERT_EQ(Init(kSign, CKM_ECDSA_SHA256, ec_), CKR_OK);
  fake_.FailNext("C_SignUpdate", CKR_DEVICE_ERROR);
  CK_BYTE part = 1;
  EXPECT_EQ(operation_.SignUpdate(&part, 1), CKR_DEVICE_ERROR);
  EXPECT_EQ(operation_.SignUpdate(&part, 1), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  fake_.claimed_excess = 50;
  std::array<CK_BYTE, 8> room = {};
  CK_ULONG size = room.size();
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_DEVICE_ERROR);
  EXPECT_EQ(size, 0u);
}

TEST_F(KeyOperationTest, DecryptedPartsReachTheCaller) {
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  std::array<CK_BYTE, 8> room = {};
  CK_BYTE part = 0x5a;
  CK_ULONG size = room.size();
  fake_.FailNext("C_DecryptUpdate", CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_OK);
  EXPECT_EQ(room[0], 0x5a);
  fake_.FailNext("C_DecryptUpdate", CKR_DEVICE_ERROR);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_DEVICE_ERROR);
}

TEST_F(KeyOperationTest, DecryptionThatWentOnAfterASmallBufferIsNotReplaced) {
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  std::array<CK_BYTE, 8> room = {};
  CK_BYTE part = 0x5a;
  CK_ULONG size = room.size();
  fake_.FailNext("C_DecryptUpdate", CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_OK);
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(operation_.DecryptUpdate(&part, 1, room.data(), &size), CKR_OK);
}

// With its result here the module has nothing of the operation any more.
TEST_F(KeyOperationTest, WorkerWhoseResultWaitsIsIdle) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_FALSE(operation_.CloseIdleWorker()) << "the module has yet to sign";
  EXPECT_EQ(fake_.sessions.size(), 1u);
  ASSERT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  EXPECT_TRUE(operation_.CloseIdleWorker());
  EXPECT_TRUE(fake_.sessions.empty());
  EXPECT_FALSE(operation_.CloseIdleWorker()) << "there is none any more";
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  EXPECT_EQ(output_, answer_);
}

TEST_F(KeyOperationTest, ActiveSessionIsTheWorkersWhileAnOperationRuns) {
  EXPECT_FALSE(operation_.ActiveSession());
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(operation_.ActiveSession(), fake_.sessions.begin()->first);
  ASSERT_EQ(Run(kSign, {1}), CKR_OK);
  EXPECT_FALSE(operation_.ActiveSession());
}

}  // namespace
}  // namespace kelvrin::adapter
