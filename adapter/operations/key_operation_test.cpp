// What every operation has in common, whatever its mechanism.
#include "adapter/operations/key_operation.h"

#include "adapter/operations/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

const Bytes kAnswer = {1, 2, 3};

TEST_F(KeyOperationTest, WithoutInitNothingReachesTheModule) {
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kDecrypt, {1}), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(module.Count("C_Sign") + module.Count("C_Decrypt"), 0u);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(KeyOperationTest, FailureIsPassedOnAndLeavesNothingInTheWayOfTheNext) {
  answer_ = kAnswer;
  faults::FailureLeavesOperation(module);
  for (const auto& [kind, init, run] : {std::tuple(kSign, "C_SignInit", "C_Sign"),
                                        std::tuple(kDecrypt, "C_DecryptInit", "C_Decrypt")}) {
    module.FailNext(init, CKR_KEY_FUNCTION_NOT_PERMITTED);
    EXPECT_EQ(Init(kind, CKM_RSA_PKCS, rsa_), CKR_KEY_FUNCTION_NOT_PERMITTED) << init;
    EXPECT_TRUE(HasNoWorker()) << init;
    EXPECT_EQ(Run(kind, {1}), CKR_OPERATION_NOT_INITIALIZED) << init;
    ASSERT_EQ(Init(kind, CKM_AES_CBC, rsa_), CKR_MECHANISM_INVALID) << init;
    ASSERT_EQ(Init(kind, CKM_RSA_PKCS, rsa_), CKR_OK) << init;
    module.FailNext(run, CKR_DEVICE_ERROR);
    EXPECT_EQ(Run(kind, {1}), CKR_DEVICE_ERROR) << run;
    EXPECT_TRUE(HasNoWorker()) << run;
    EXPECT_EQ(Run(kind, {1}), CKR_OPERATION_NOT_INITIALIZED) << run;
    EXPECT_EQ(Perform(kind, CKM_RSA_PKCS, rsa_, {1}), CKR_OK) << run;
  }
}

TEST_F(KeyOperationTest, FailureForgetsWhatWasLearned) {
  for (const char* function : {"C_SignInit", "C_Sign"}) {
    Find(CKO_PRIVATE_KEY, Bytes{1});
    module.FailNext(function, CKR_DEVICE_REMOVED);
    EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, {1}), CKR_DEVICE_REMOVED) << function;
    module.ForgetCalls();
    Find(CKO_PRIVATE_KEY, Bytes{1});
    EXPECT_EQ(Searches(), 1u) << function;
  }
}

// The caller's session would be taken for lost as well, and its token with it.
TEST_F(KeyOperationTest, LossOfTheWorkerAloneIsADeviceError) {
  for (const CK_RV lost : {CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED}) {
    module.FailNext("C_Sign", lost);
    EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, Bytes(51, 1)), CKR_DEVICE_ERROR);
    module.FailNext("C_Sign", lost);
    module.FailNext("C_GetSessionInfo", lost);
    EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, Bytes(51, 1)), lost) << "the caller's is gone too";
  }
}

TEST_F(KeyOperationTest, OneWorkerServesAllOperationsUntilItHoldsOneStill) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, {1}), CKR_OK);
  EXPECT_EQ(module.Count("C_OpenSession"), 1u);
  EXPECT_EQ(noted_.size(), 1u);
  EXPECT_TRUE(operation_.HasWorker(noted_[0]));
  EXPECT_FALSE(operation_.HasWorker(session_));
  module.sessions.at(noted_[0]).operation.emplace();
  EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, {1}), CKR_OK);
  EXPECT_EQ(noted_.size(), 2u);
  EXPECT_EQ(module.sessions.size(), 2u);
}

TEST_F(KeyOperationTest, NewInitReplacesAnOperationUnderWay) {
  answer_ = kAnswer;
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(Run(kDecrypt, {1}, 2), CKR_BUFFER_TOO_SMALL);
  answer_ = Bytes(256, 9);
  EXPECT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, {1}), CKR_OK);
  EXPECT_EQ(output_, answer_) << "nothing of the one before";
}

TEST_F(KeyOperationTest, SmallBufferAndAskingForTheSizeLoseNothing) {
  answer_ = kAnswer;
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  const CK_BYTE data = 1;
  EXPECT_EQ(operation_.Run(kDecrypt, &data, 1, nullptr, &size_), CKR_OK);
  EXPECT_EQ(size_, 3u);
  EXPECT_EQ(Run(kDecrypt, {1}, 2), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size_, 3u);
  EXPECT_EQ(output_, (Bytes{0xee, 0xee})) << "untouched";
  EXPECT_EQ(Run(kDecrypt, {1}, 3), CKR_OK);
  EXPECT_EQ(output_, kAnswer);
  EXPECT_EQ(module.Count("C_Decrypt"), 1u);
}

TEST_F(KeyOperationTest, ResultThatClaimsMoreThanItsRoomIsAFailure) {
  const std::size_t room = 4096 + 256;
  for (const std::size_t more : {0u, 1u}) {
    answer_ = Bytes(room + more, 0x55);
    ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
    EXPECT_EQ(Run(kDecrypt, Bytes(256, 1), room), more == 0 ? CKR_OK : CKR_DEVICE_ERROR);
    if (more == 0) EXPECT_EQ(output_, *answer_);
    EXPECT_EQ(HasNoWorker(), more != 0);
  }
}

TEST_F(KeyOperationTest, InputOfMoreThan64MiBIsRefused) {
  constexpr std::size_t kMost = std::size_t{1} << 26;
  answer_ = kAnswer;
  const Bytes input(kMost);
  EXPECT_EQ(Perform(kDecrypt, CKM_RSA_PKCS, rsa_, input), CKR_OK);
  EXPECT_EQ(input_.size(), kMost);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  module.ForgetCalls();
  size_ = 0;
  EXPECT_EQ(operation_.Run(kDecrypt, input.data(), kMost + 1, nullptr, &size_), CKR_DATA_LEN_RANGE);
  EXPECT_EQ(module.Calls(), std::vector<std::string>{"C_CloseSession"});
}

TEST_F(KeyOperationTest, EmptyInputReachesTheModuleAsAValidPointer) {
  faults::RefusesNullInput(module);
  answer_ = Bytes(64, 1);
  for (const auto& [kind, mechanism, key] :
       {std::tuple(kSign, CKM_RSA_PKCS, rsa_), std::tuple(kSign, CKM_ECDSA, ec_),
        std::tuple(kDecrypt, CKM_RSA_PKCS, rsa_)}) {
    input_ = {9};
    ASSERT_EQ(Init(kind, mechanism, key), CKR_OK);
    output_.assign(1024, 0);
    size_ = output_.size();
    EXPECT_EQ(operation_.Run(kind, nullptr, 0, output_.data(), &size_), CKR_OK) << mechanism;
    EXPECT_EQ(input_, Bytes()) << mechanism;
  }
}

// With its result here the module has nothing of the operation any more.
TEST_F(KeyOperationTest, WorkerThatHasNothingToDoIsIdle) {
  EXPECT_FALSE(operation_.CloseIdleWorker()) << "there is none";
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_FALSE(operation_.CloseIdleWorker()) << "the module has yet to sign";
  EXPECT_EQ(module.sessions.size(), 2u);
  ASSERT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  EXPECT_TRUE(operation_.CloseIdleWorker());
  EXPECT_TRUE(HasNoWorker());
  EXPECT_FALSE(operation_.CloseIdleWorker()) << "there is none any more";
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  ASSERT_EQ(Perform(kSign, CKM_RSA_PKCS, rsa_, {1}), CKR_OK);
  EXPECT_TRUE(operation_.CloseIdleWorker());
}

TEST_F(KeyOperationTest, ClosingAndDroppingEndTheOperationTheLatterWithoutACall) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  operation_.Close();
  EXPECT_TRUE(HasNoWorker());
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  module.ForgetCalls();
  operation_.Drop();
  EXPECT_FALSE(operation_.HasWorker(noted_.at(1)));
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(module.Count(), 0u);
}

}  // namespace
}  // namespace kelvrin::adapter
