#include "adapter/dual_functions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "adapter/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_SESSION_HANDLE kSession = 1;

// A module whose cipher turns every byte round and adds a header of two bytes.
struct Cipher {
  CK_RV result = CKR_OK;      // what the cipher half answers
  CK_RV fed_result = CKR_OK;  // what the other half answers
  CK_ULONG excess = 0;        // claimed beyond what was written
  int runs = 0;               // how often the cipher took its input
  std::vector<Bytes> fed;     // what the other half got
  CK_SESSION_HANDLE fed_session = 0;
};
Cipher* cipher = nullptr;

CK_RV Crypt(CK_SESSION_HANDLE, CK_BYTE* input, CK_ULONG size, CK_BYTE* output, CK_ULONG* room) {
  if (cipher->result != CKR_OK) return cipher->result;
  const bool fits = output != nullptr && *room >= size + 2;
  *room = size + 2 + cipher->excess;
  if (output == nullptr) return CKR_OK;
  if (!fits) return CKR_BUFFER_TOO_SMALL;
  ++cipher->runs;
  output[0] = output[1] = 0;
  std::transform(input, input + size, output + 2, [](CK_BYTE b) { return CK_BYTE(~b); });
  return CKR_OK;
}

CK_RV Feed(CK_SESSION_HANDLE session, CK_BYTE* part, CK_ULONG size) {
  cipher->fed_session = session;
  cipher->fed.emplace_back(part, part + size);
  return cipher->fed_result;
}

class DualFunctionsTest : public KeyOperationTest {
 protected:
  DualFunctionsTest() {
    cipher = &cipher_;
    functions_.C_EncryptUpdate = Crypt;
    functions_.C_DecryptUpdate = Crypt;
    functions_.C_SignUpdate = Feed;
    functions_.C_VerifyUpdate = Feed;
    functions_.C_DigestUpdate = Feed;
  }
  ~DualFunctionsTest() override { cipher = nullptr; }

  template <typename Function>
  CK_RV Call(const Function& function, Bytes input, std::size_t room) {
    output_.assign(room, 0xee);
    output_.reserve(1);  // a pointer in any case
    size_ = room;
    return function(functions_, kSession, operation_, input.data(), input.size(), output_.data(),
                    &size_);
  }
  bool IsUntouched() const {
    return std::all_of(output_.begin(), output_.end(), [](CK_BYTE b) { return b == 0xee; });
  }

  Cipher cipher_;
  const Bytes in_ = {1, 2, 3};
  const Bytes out_ = {0, 0, 0xfe, 0xfd, 0xfc};
};

TEST_F(DualFunctionsTest, WithoutTheOperationNothingIsFed) {
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 5), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(Call(DecryptDigestUpdate, in_, 5), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(cipher_.runs, 0);
  EXPECT_TRUE(cipher_.fed.empty());
}

TEST_F(DualFunctionsTest, MissingPointersFeedNothing) {
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  CK_BYTE byte = 0;
  EXPECT_EQ(SignEncryptUpdate(functions_, kSession, operation_, nullptr, 1, &byte, &size_),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(SignEncryptUpdate(functions_, kSession, operation_, &byte, 1, &byte, nullptr),
            CKR_ARGUMENTS_BAD);
  operation_.Close();
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(DecryptVerifyUpdate(functions_, kSession, operation_, nullptr, 1, &byte, &size_),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(DecryptDigestUpdate(functions_, kSession, operation_, &byte, 1, &byte, nullptr),
            CKR_ARGUMENTS_BAD);
  EXPECT_EQ(cipher_.runs, 0);
}

TEST_F(DualFunctionsTest, SigningGetsWhatIsEncrypted) {
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 9), CKR_OK);
  EXPECT_EQ(size_, 5u);
  EXPECT_EQ(Bytes(output_.begin(), output_.begin() + 5), out_);
  EXPECT_EQ(cipher_.fed, std::vector<Bytes>{in_});
  EXPECT_EQ(cipher_.fed_session, operation_.worker().handle());
}

TEST_F(DualFunctionsTest, VerifyingAndDigestingGetWhatWasDecrypted) {
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_OK);
  EXPECT_EQ(Call(DecryptDigestUpdate, in_, 5), CKR_OK);
  EXPECT_EQ(output_, out_);
  EXPECT_EQ(cipher_.fed, (std::vector<Bytes>{out_, out_}));
  EXPECT_EQ(cipher_.fed_session, kSession);
}

TEST_F(DualFunctionsTest, SmallBufferLosesNothingAndFeedsNothingTwice) {
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  for (const std::size_t room : {std::size_t{0}, std::size_t{4}}) {
    EXPECT_EQ(Call(SignEncryptUpdate, in_, room), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size_, 5u);
    EXPECT_TRUE(IsUntouched());
  }
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 5), CKR_OK);
  operation_.Close();
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 4), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size_, 5u);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_OK);
  EXPECT_EQ(cipher_.runs, 2);
  EXPECT_EQ(cipher_.fed, (std::vector<Bytes>{in_, out_}));
}

TEST_F(DualFunctionsTest, QuestionForTheSizeFeedsNothing) {
  Bytes input = in_;
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(SignEncryptUpdate(functions_, kSession, operation_, input.data(), 3, nullptr, &size_),
            CKR_OK);
  EXPECT_EQ(size_, 5u);
  operation_.Close();
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  size_ = 0;
  EXPECT_EQ(DecryptDigestUpdate(functions_, kSession, operation_, input.data(), 3, nullptr, &size_),
            CKR_OK);
  EXPECT_EQ(size_, 5u);
  EXPECT_EQ(cipher_.runs, 0);
  EXPECT_TRUE(cipher_.fed.empty());
}

TEST_F(DualFunctionsTest, FailureOfTheCipherEndsTheOperationAndFeedsNothing) {
  cipher_.result = CKR_DEVICE_ERROR;
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_FALSE(operation_.IsUnderWay(kSign));
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_FALSE(operation_.IsUnderWay(kDecrypt));
  EXPECT_TRUE(cipher_.fed.empty());
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(size_, 5u);
}

TEST_F(DualFunctionsTest, FailureOfTheOtherHalfEndsTheOperationAndGivesNothingAway) {
  cipher_.fed_result = CKR_DEVICE_ERROR;
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_TRUE(IsUntouched());
  EXPECT_FALSE(operation_.IsUnderWay(kSign));
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptDigestUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_TRUE(IsUntouched());
  EXPECT_FALSE(operation_.IsUnderWay(kDecrypt));
}

TEST_F(DualFunctionsTest, ClaimOfMoreThanTheRoomIsADeviceErrorAndFeedsNothing) {
  cipher_.excess = 1;
  ASSERT_EQ(Init(kSign, CKM_SHA256_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(SignEncryptUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_TRUE(IsUntouched());
  EXPECT_FALSE(operation_.IsUnderWay(kSign));
  ASSERT_EQ(Init(kDecrypt, CKM_RSA_PKCS, rsa_), CKR_OK);
  EXPECT_EQ(Call(DecryptVerifyUpdate, in_, 5), CKR_DEVICE_ERROR);
  EXPECT_TRUE(IsUntouched());
  EXPECT_FALSE(operation_.IsUnderWay(kDecrypt));
  EXPECT_TRUE(cipher_.fed.empty());
}

}  // namespace
}  // namespace kelvrin::adapter
