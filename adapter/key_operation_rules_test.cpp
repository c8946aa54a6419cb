// Key operations on modules that lack something: raw RSA, a lasting login, valid handles, sessions.
#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <string>
#include <thread>

#include "adapter/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

class KeyOperationRulesTest : public KeyOperationTest {
 protected:
  void LackRawRsa() { fake_.slots[0].mechanisms = {CKM_RSA_PKCS, CKM_ECDSA}; }
  void LogIn() { login_.Keep(reinterpret_cast<const CK_BYTE*>("1234"), 4); }
  // An EMSA-PKCS1-v1_5 block of the key's size round `message`.
  static Bytes SignatureBlock(const Bytes& message) {
    Bytes block(256 - message.size(), 0xff);
    block[0] = 0;
    block[1] = 1;
    block.back() = 0;
    block.insert(block.end(), message.begin(), message.end());
    return block;
  }
};

TEST_F(KeyOperationRulesTest, RawBlockIsSignedAsPkcs1WhereRawRsaIsLacking) {
  LackRawRsa();
  const Bytes message(51, 0x30);
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, SignatureBlock(message)), CKR_OK);
  EXPECT_EQ(mechanism_, CKM_RSA_PKCS);
  EXPECT_EQ(input_, message);
  EXPECT_EQ(output_, answer_);
}

TEST_F(KeyOperationRulesTest, BlockWithoutItsLeadingZeroIsTheSame) {
  LackRawRsa();
  Bytes block = SignatureBlock(Bytes(20, 7));
  block.erase(block.begin());
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, block), CKR_OK);
  EXPECT_EQ(input_, Bytes(20, 7));
}

TEST_F(KeyOperationRulesTest, BlockOfAnotherPaddingIsRefusedAndNothingSigned) {
  LackRawRsa();
  for (const Bytes& block : {Bytes(256, 0x5a), Bytes(), Bytes(51, 1), Bytes(257, 0)}) {
    ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
    EXPECT_EQ(Run(kSign, block), CKR_MECHANISM_INVALID);
  }
  EXPECT_EQ(fake_.Calls("C_Sign"), 0u);
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK) << "the failure leaves nothing behind";
}

TEST_F(KeyOperationRulesTest, DecryptionByPkcs1GivesTheBlockThatRawRsaWouldHaveGiven) {
  LackRawRsa();
  answer_ = {'t', 'e', 'x', 't'};
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_X_509, rsa_), CKR_OK);
  CK_ULONG size = 0;
  EXPECT_EQ(operation_.Run(kDecrypt, Bytes(256, 9).data(), 256, nullptr, &size), CKR_OK);
  EXPECT_EQ(size, 256u);
  EXPECT_EQ(Run(kDecrypt, Bytes(256, 9)), CKR_OK);
  EXPECT_EQ(mechanism_, CKM_RSA_PKCS);
  ASSERT_EQ(output_.size(), 256u);
  EXPECT_EQ(output_[0], 0);
  EXPECT_EQ(output_[1], 2);
  EXPECT_EQ(std::count(output_.begin() + 2, output_.begin() + 251, 0), 0);
  EXPECT_EQ(Bytes(output_.begin() + 251, output_.end()), (Bytes{0, 't', 'e', 'x', 't'}));
}

TEST_F(KeyOperationRulesTest, PlaintextTooLongForItsBlockIsAFailure) {
  LackRawRsa();
  answer_ = Bytes(246, 1);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kDecrypt, Bytes(256, 9)), CKR_DEVICE_ERROR);
}

TEST_F(KeyOperationRulesTest, WithoutTheRuleRawRsaGoesToTheModule) {
  LackRawRsa();
  rules_.SwitchOff(Rule::kMissingRawRsa);
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(256, 0x5a)), CKR_OK);
  EXPECT_EQ(mechanism_, CKM_RSA_X_509);
}

TEST_F(KeyOperationRulesTest, WithoutTheRuleRawRsaInputStaysAsItIs) {
  rules_.SwitchOff(Rule::kRawRsa);
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, Bytes(51, 1)), CKR_OK);
  EXPECT_EQ(input_, Bytes(51, 1));
}

TEST_F(KeyOperationRulesTest, WithoutTheRuleANullPointerStaysOne) {
  rules_.SwitchOff(Rule::kRawRsa);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  output_.assign(1024, 0);
  size_ = output_.size();
  EXPECT_EQ(operation_.Run(kSign, nullptr, 0, output_.data(), &size_), CKR_ARGUMENTS_BAD);
}

TEST_F(KeyOperationRulesTest, WithoutTheRuleEcdsaStaysRaw) {
  rules_.SwitchOff(Rule::kEcdsa);
  answer_ = Bytes(64, 1);
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    ASSERT_EQ(Init(kSign, type, ec_), CKR_OK);
    EXPECT_EQ(Run(kSign, Bytes(64, 7)), CKR_OK);
    EXPECT_EQ(mechanism_, type);
    EXPECT_EQ(input_, Bytes(64, 7));
    EXPECT_EQ(output_, answer_);
  }
}

TEST_F(KeyOperationRulesTest, KeyThatWantsALoginGetsItOnTheWorkerBeforeTheOperation) {
  fake_.objects[rsa_][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
  LogIn();
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(fake_.login_user, CKU_CONTEXT_SPECIFIC);
  EXPECT_EQ(fake_.login_pin, "1234");
  EXPECT_EQ(fake_.login_session, fake_.sessions.begin()->first);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Login"), 2u) << "for each operation anew";
}

TEST_F(KeyOperationRulesTest, FailedLoginForAnOperationEndsItAndIsNotRepeated) {
  fake_.objects[ec_][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
  LogIn();
  fake_.FailNext("C_Login", CKR_PIN_INCORRECT);
  EXPECT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_PIN_INCORRECT);
  EXPECT_TRUE(fake_.sessions.empty());
  EXPECT_TRUE(login_.TakeLogoutRequest());
  EXPECT_EQ(Init(kSign, CKM_ECDSA, ec_), CKR_USER_NOT_LOGGED_IN);
  EXPECT_TRUE(login_.TakeLogoutRequest());
  EXPECT_EQ(fake_.Calls("C_Login"), 1u);
}

TEST_F(KeyOperationRulesTest, OtherKeysOrWithoutTheRuleAnyAreNotLoggedInFor) {
  LogIn();
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  fake_.objects[rsa_][CKA_ALWAYS_AUTHENTICATE] = FakeModule::Flag(true);
  rules_.SwitchOff(Rule::kContextLogin);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Login"), 0u);
  EXPECT_FALSE(login_.TakeLogoutRequest());
}

TEST_F(KeyOperationRulesTest, RefusedHandleIsReplacedByTheSameKeysNewOne) {
  fake_.objects[rsa_].insert({{CKA_CLASS, FakeModule::Number(CKO_PRIVATE_KEY)}, {CKA_ID, {1}}});
  CK_SESSION_HANDLE session = 1;
  fake_.sessions[session] = {};
  CK_OBJECT_CLASS object_class = CKO_PRIVATE_KEY;
  CK_BYTE id = 1;
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof(object_class)}, {CKA_ID, &id, 1}};
  Handles found;
  ASSERT_EQ(objects_.Find(session, wanted, &found), CKR_OK);
  ASSERT_EQ(found, Handles{rsa_});
  const auto moved = fake_.Add(fake_.objects[rsa_]);
  fake_.objects.erase(rsa_);
  for (const CK_RV refusal : {CKR_KEY_HANDLE_INVALID, CKR_OBJECT_HANDLE_INVALID}) {
    ASSERT_EQ(objects_.Find(session, wanted, &found), CKR_OK);
    fake_.FailNext("C_SignInit", refusal);
    ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, found[0]), CKR_OK);
    EXPECT_EQ(fake_.operation_key, moved);
    EXPECT_EQ(Run(kSign, {1}), CKR_OK);
  }
}

TEST_F(KeyOperationRulesTest, ThreadWhoseOperationWasReplacedDoesNotRunTheOther) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  ASSERT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  std::thread([&] { ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK); }).join();
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  std::thread([&] { EXPECT_EQ(Run(kSign, {1}), CKR_OK); }).join();
  EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Run(kSign, {1}), CKR_OK);
}

TEST_F(KeyOperationRulesTest, NoneOfTheThreadsWhoseOperationsWereReplacedRunsTheLast) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  ASSERT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
  std::latch replaced(1);
  std::latch done(1);
  std::thread second([&] {
    EXPECT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
    EXPECT_EQ(Run(kSign, {1}, 2), CKR_BUFFER_TOO_SMALL);
    replaced.count_down();
    done.wait();
    EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  });
  replaced.wait();
  std::thread([&] { EXPECT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK); }).join();
  EXPECT_EQ(Run(kSign, {1}), CKR_OPERATION_NOT_INITIALIZED);
  done.count_down();
  second.join();
  EXPECT_EQ(fake_.Calls("C_Sign"), 2u) << "the third thread's is still to come";
}

TEST_F(KeyOperationRulesTest, PartsAreRefusedWhereTheInputIsShapedAsAWhole) {
  struct Case {
    OperationKind kind;
    CK_MECHANISM_TYPE mechanism;
    CK_OBJECT_HANDLE key;
    bool lacks_raw_rsa;
  };
  const Case cases[] = {
      {kSign, CKM_ECDSA, ec_, false},         {kSign, CKM_ECDSA_SHA1, ec_, false},
      {kSign, CKM_RSA_X_509, rsa_, false},    {kSign, CKM_RSA_X_509, rsa_, true},
      {kDecrypt, CKM_RSA_X_509, rsa_, false}, {kDecrypt, CKM_RSA_X_509, rsa_, true}};
  for (const auto& [kind, mechanism, key, lacks_raw_rsa] : cases) {
    objects_.Forget();
    fake_.slots[0].mechanisms = {CKM_RSA_PKCS, CKM_ECDSA};
    if (!lacks_raw_rsa) fake_.slots[0].mechanisms.push_back(CKM_RSA_X_509);
    CK_BYTE part = 1;
    std::array<CK_BYTE, 300> room = {};
    CK_ULONG size = room.size();
    ASSERT_EQ(Init(kind, mechanism, key), CKR_OK);
    EXPECT_EQ(kind == kSign ? operation_.SignUpdate(&part, 1)
                            : operation_.DecryptUpdate(&part, 1, room.data(), &size),
              CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(operation_.Final(kind, room.data(), &size), CKR_OPERATION_NOT_INITIALIZED);
    ASSERT_EQ(Init(kind, mechanism, key), CKR_OK);
    EXPECT_EQ(operation_.Final(kind, room.data(), &size), CKR_FUNCTION_NOT_SUPPORTED);
  }
  for (const char* const function : {"C_SignUpdate", "C_DecryptUpdate", "C_SignFinal"}) {
    EXPECT_EQ(fake_.Calls(function), 0u) << function;
  }
}

TEST_F(KeyOperationRulesTest, WithoutTheRulesPartsGoToTheModule) {
  rules_ = Rules::Standard();
  CK_BYTE part = 1;
  for (const auto mechanism : {CKM_ECDSA, CKM_RSA_X_509}) {
    ASSERT_EQ(Init(kSign, mechanism, rsa_), CKR_OK);
    EXPECT_EQ(operation_.SignUpdate(&part, 1), CKR_OK);
    operation_.Close();
  }
}

TEST_F(KeyOperationRulesTest, OperationMayBeRunOnAnotherThreadThanItsBeginning) {
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  std::thread([&] { EXPECT_EQ(Run(kSign, {1}), CKR_OK); }).join();
}

TEST_F(KeyOperationRulesTest, FailureForgetsWhatWasLearned) {
  std::vector<CK_MECHANISM_TYPE> ignored;
  ASSERT_EQ(objects_.GetMechanisms(&ignored), CKR_OK);
  ASSERT_EQ(Init(kSign, CKM_RSA_PKCS, rsa_), CKR_OK);
  result_ = CKR_DEVICE_REMOVED;
  EXPECT_EQ(Run(kSign, {1}), CKR_DEVICE_REMOVED);
  ASSERT_EQ(objects_.GetMechanisms(&ignored), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_GetMechanismList"), 4u) << "two calls for each reading";
}

}  // namespace
}  // namespace kelvrin::adapter
