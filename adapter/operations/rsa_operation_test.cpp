// RSA through a key operation: input and results of the modulus's length, raw RSA by PKCS#1.
#include <openssl/rsa.h>

#include <algorithm>

#include "adapter/operations/testing/key_operation_fixture.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

constexpr std::size_t kModulus = 256;

class RsaOperationTest : public KeyOperationTest {
 protected:
  void LackRawRsa() { card_.mechanisms = {CKM_RSA_PKCS, CKM_ECDSA}; }
  void HideModulus() { Erase(rsa_, CKA_MODULUS); }
  static Bytes Padded(const Bytes& bytes) {
    Bytes padded(kModulus - std::min(kModulus, bytes.size()), 0);
    padded.insert(padded.end(), bytes.begin(), bytes.end());
    return padded;
  }
  // An EMSA-PKCS1-v1_5 block of the key's size round `message`.
  static Bytes SignatureBlock(const Bytes& message) {
    Bytes block(kModulus - message.size(), 0xff);
    block[0] = 0;
    block[1] = 1;
    block.back() = 0;
    block.insert(block.end(), message.begin(), message.end());
    return block;
  }
};

TEST_F(RsaOperationTest, RawInputIsPaddedOnTheLeftAndNeverLongerThanTheModulus) {
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(257, 0)), CKR_DATA_LEN_RANGE);
  EXPECT_EQ(Perform(kDecrypt, CKM_RSA_X_509, rsa_, Bytes(257, 0)), CKR_ENCRYPTED_DATA_LEN_RANGE);
  EXPECT_EQ(module.Count("C_Sign") + module.Count("C_Decrypt"), 0u);
  EXPECT_TRUE(HasNoWorker());
  EVP_PKEY* const key = card_.KeyOf(rsa_);
  for (const Bytes& input : {Bytes(), Bytes(51, 0x77), Bytes(256, 0x11)}) {
    EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, input), CKR_OK);
    EXPECT_EQ(output_, SignRsa(key, RSA_NO_PADDING, Padded(input))) << input.size();
    EXPECT_EQ(Perform(kDecrypt, CKM_RSA_X_509, rsa_, input), CKR_OK);
    EXPECT_EQ(output_, DecryptRsa(key, RSA_NO_PADDING, Padded(input))) << input.size();
  }
}

// Some modules leave out leading zeros.
TEST_F(RsaOperationTest, ResultsHaveTheModulusLengthButPlaintextsOfPkcs1KeepTheirs) {
  struct Row {
    const char* name;
    OperationKind kind;
    CK_MECHANISM_TYPE mechanism;
    bool keeps_length;
  };
  for (const Row& row : {Row{"PKCS#1 signature", kSign, CKM_RSA_PKCS, false},
                         Row{"raw signature", kSign, CKM_RSA_X_509, false},
                         Row{"raw decryption", kDecrypt, CKM_RSA_X_509, false},
                         Row{"PKCS#1 plaintext", kDecrypt, CKM_RSA_PKCS, true}}) {
    for (const std::size_t size : {0u, 1u, 255u, 256u, 257u}) {
      answer_ = Bytes(size, 1);
      const bool is_good = row.keeps_length || (size != 0 && size <= kModulus);
      EXPECT_EQ(Perform(row.kind, row.mechanism, rsa_, {1}), is_good ? CKR_OK : CKR_DEVICE_ERROR)
          << row.name << " of " << size;
      if (!is_good) continue;
      EXPECT_EQ(output_, row.keeps_length ? answer_ : Padded(*answer_))
          << row.name << " of " << size;
    }
  }
}

TEST_F(RsaOperationTest, WithoutTheRuleRawInputAndResultsStayAsTheyAre) {
  rules_.SwitchOff(Rule::kRawRsa);
  for (const auto kind : {kSign, kDecrypt}) {
    for (const Bytes& answer : {Bytes(), Bytes{1}, Bytes(300, 1)}) {
      answer_ = answer;
      EXPECT_EQ(Perform(kind, CKM_RSA_X_509, rsa_, Bytes(51, 1)), CKR_OK);
      EXPECT_EQ(input_, Bytes(51, 1));
      EXPECT_EQ(output_, answer);
    }
  }
}

// --- where the key does not tell its modulus ---

TEST_F(RsaOperationTest, ModulusLengthIsAskedForOnceWhenTheKeyHidesIt) {
  HideModulus();
  Find(CKO_PRIVATE_KEY, Bytes{1});
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(257, 1)), CKR_DATA_LEN_RANGE);
  Find(CKO_PRIVATE_KEY, Bytes{1});
  module.ForgetCalls();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(51, 1)), CKR_OK);
    EXPECT_EQ(input_, Padded(Bytes(51, 1)));
  }
  EXPECT_EQ(module.Count("C_Sign"), 3u);
  EXPECT_EQ(asked_with_, 51u);
  asked_with_ = 0;
  EXPECT_EQ(Perform(kDecrypt, CKM_RSA_X_509, rsa_, Bytes(256, 1)), CKR_OK);
  EXPECT_EQ(asked_with_, 0u) << "it is known by now";
}

// Such a module takes a question for a failed operation, and ends it.
TEST_F(RsaOperationTest, OperationThatTheQuestionEndedIsStartedAgain) {
  HideModulus();
  int starts = 0;
  faults::Chain<&MemoryEntries::C_SignInit>(module, [&](auto next, auto... arguments) {
    ++starts;
    return next(arguments...);
  });
  module.FailNext("C_Sign", CKR_DATA_LEN_RANGE);
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(256, 0)), CKR_OK);
  EXPECT_EQ(starts, 2);
  EXPECT_EQ(module.sessions.size(), 2u) << "on a fresh worker";
}

TEST_F(RsaOperationTest, WithoutAModulusLengthInputAndResultsStayAsTheyAre) {
  HideModulus();
  RefuseQuestions();
  answer_ = Bytes{5, 6};
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(300, 1)), CKR_OK);
  EXPECT_EQ(input_, Bytes(300, 1));
  EXPECT_EQ(output_, answer_);
  answer_ = Bytes();
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, Bytes(300, 1)), CKR_DEVICE_ERROR);
}

TEST_F(RsaOperationTest, NoModulusIsBelievedToBeLongerThan4096Bytes) {
  HideModulus();
  for (const std::size_t size : {4096u, 4097u}) {
    answer_ = Bytes(size, 1);
    ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
    EXPECT_EQ(Run(kSign, {1}, 5000), CKR_OK);
    EXPECT_EQ(input_.size(), size == 4096 ? 4096u : 1u);
  }
}

// --- where the module has no raw RSA ---

TEST_F(RsaOperationTest, RawBlockIsSignedAsPkcs1AndNothingElseIs) {
  LackRawRsa();
  for (const Bytes& block : {Bytes(256, 0x5a), Bytes(), Bytes(51, 1), Bytes(257, 0)}) {
    EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, block), CKR_MECHANISM_INVALID) << block.size();
  }
  EXPECT_EQ(module.Count("C_Sign"), 0u);
  EXPECT_TRUE(HasNoWorker());
  faults::RefusesNullInput(module);
  for (const Bytes& message : {Bytes(51, 0x30), Bytes()}) {
    Bytes block = SignatureBlock(message);
    for (const bool has_zero : {true, false}) {
      if (!has_zero) block.erase(block.begin());
      EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, block), CKR_OK);
      EXPECT_EQ(mechanism_, CKM_RSA_PKCS);
      EXPECT_EQ(output_, SignRsa(card_.KeyOf(rsa_), RSA_PKCS1_PADDING, message));
    }
  }
  answer_ = Bytes{7};
  EXPECT_EQ(Perform(kSign, CKM_RSA_X_509, rsa_, SignatureBlock({1})), CKR_OK);
  EXPECT_EQ(output_, Padded({7})) << "with its leading zeros";
}

TEST_F(RsaOperationTest, DecryptionByPkcs1GivesTheBlockThatRawRsaWouldHaveGiven) {
  LackRawRsa();
  HideModulus();
  answer_ = Bytes{'t', 'e', 'x', 't'};
  const Bytes input(256, 9);
  EXPECT_EQ(Perform(kDecrypt, CKM_RSA_X_509, rsa_, input), CKR_OK);
  EXPECT_EQ(mechanism_, CKM_RSA_PKCS);
  EXPECT_EQ(input_, input);
  ASSERT_EQ(output_.size(), 256u);
  EXPECT_EQ(output_[0], 0);
  EXPECT_EQ(output_[1], 2);
  EXPECT_EQ(std::count(output_.begin() + 2, output_.begin() + 251, 0), 0);
  EXPECT_EQ(Bytes(output_.begin() + 251, output_.end()), (Bytes{0, 't', 'e', 'x', 't'}));
  EXPECT_EQ(asked_with_, 0u) << "the ciphertext is as long as the modulus";
  answer_ = Bytes(246, 1);
  EXPECT_EQ(Perform(kDecrypt, CKM_RSA_X_509, rsa_, input), CKR_DEVICE_ERROR) << "too long for it";
}

}  // namespace
}  // namespace kelvrin::adapter
