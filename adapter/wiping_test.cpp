// Plaintexts and keys that pass through the adapter leave nothing in its memory.
#include "adapter/bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "adapter/outputs.h"
#include "adapter/testing/heap_watch.h"
#include "adapter/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr std::array<CK_BYTE, 32> kSecret = {
    0x93, 0x1c, 0x77, 0xe2, 0x05, 0xba, 0x4e, 0xd8, 0x61, 0x3f, 0xc4, 0x2a, 0x8d, 0x16, 0xf9, 0x50,
    0xab, 0x34, 0xde, 0x67, 0x0b, 0x95, 0x72, 0xec, 0x18, 0xc1, 0x5f, 0xa6, 0x29, 0x83, 0x4d, 0xf0};

// What the module's C_Decrypt and C_Sign answer once they have written the secret; the lengths are
// claimed one call after the other.
CK_RV module_result = CKR_OK;
std::array<CK_ULONG, 2> claims = {};
std::size_t calls = 0;

// The caller's buffer, which is not on the heap.
std::array<CK_BYTE, 256> plain;

CK_RV WriteSecret(CK_BYTE* output, CK_ULONG* size) {
  if (output != nullptr) std::copy(kSecret.begin(), kSecret.end(), output);
  *size = claims[std::min<std::size_t>(calls++, 1)];
  return *size > 10000 && calls == 1 ? CKR_BUFFER_TOO_SMALL : module_result;
}

CK_RV DecryptToSecret(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE* output, CK_ULONG* size) {
  return WriteSecret(output, size);
}

class WipingTest : public KeyOperationTest {
 protected:
  WipingTest() {
    module_result = CKR_OK;
    claims.fill(kSecret.size());
    calls = 0;
    plain.fill(0);
    functions_.C_Decrypt = DecryptToSecret;
  }
  CK_RV Decrypt(CK_MECHANISM_TYPE mechanism = CKM_RSA_PKCS, CK_ULONG room = 256) {
    if (!operation_.IsUnderWay(kDecrypt)) {
      EXPECT_EQ(Init(kDecrypt, mechanism, rsa_), CKR_OK);
    }
    const std::array<CK_BYTE, 256> input = {};
    size_ = room;
    return operation_.Run(kDecrypt, input.data(), input.size(), plain.data(), &size_);
  }
  static bool HasPlaintext() {
    return std::search(plain.begin(), plain.end(), kSecret.begin(), kSecret.end()) != plain.end();
  }
  static void ExpectNoTrace() {
    EXPECT_EQ(HeapWatch::Freed(), 0u);
    EXPECT_EQ(HeapWatch::Held(), 0u);
  }

  const HeapWatch watch_{kSecret};
};

TEST_F(WipingTest, WatchSeesASecretThatIsThereAndOneThatGoes) {
  auto bytes = std::make_unique<std::vector<CK_BYTE>>(100);
  std::copy(kSecret.begin(), kSecret.end(), bytes->begin() + 7);
  EXPECT_EQ(HeapWatch::Held(), 1u);
  bytes->clear();
  EXPECT_EQ(HeapWatch::Held(), 1u);
  bytes.reset();
  EXPECT_EQ(HeapWatch::Held(), 0u);
  EXPECT_EQ(HeapWatch::Freed(), 1u);
}

TEST_F(WipingTest, WipedBytesAreZero) {
  std::vector<CK_BYTE> bytes(kSecret.begin(), kSecret.end());
  Wipe(bytes);
  EXPECT_EQ(bytes, std::vector<CK_BYTE>(kSecret.size(), 0));
  bytes = {};
  ExpectNoTrace();
}

TEST_F(WipingTest, OutputsLeaveNothingWhateverComesOfThem) {
  EXPECT_EQ(WriteOutput(WriteSecret, 0, plain.data(), &(size_ = 256)), CKR_OK);
  EXPECT_TRUE(HasPlaintext());
  module_result = CKR_DEVICE_ERROR;
  EXPECT_EQ(WriteOutput(WriteSecret, 0, plain.data(), &(size_ = 256)), CKR_DEVICE_ERROR);
  module_result = CKR_OK;
  claims.fill(100000);
  calls = 0;
  EXPECT_EQ(WriteOutput(WriteSecret, 0, plain.data(), &(size_ = 256)), CKR_BUFFER_TOO_SMALL);
  ExpectNoTrace();
}

TEST_F(WipingTest, PlaintextThatIsDeliveredIsGone) {
  EXPECT_EQ(Decrypt(), CKR_OK);
  EXPECT_TRUE(HasPlaintext());
  ExpectNoTrace();
}

TEST_F(WipingTest, PlaintextThatWaitsForALargerBufferGoesWithTheOperation) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Decrypt(CKM_RSA_PKCS, 8), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(HeapWatch::Held(), 1u) << "the only copy there is";
    operation_.Close();
    ExpectNoTrace();
  }
}

TEST_F(WipingTest, PlaintextOfAFailedDecryptionIsGone) {
  module_result = CKR_DEVICE_ERROR;
  EXPECT_EQ(Decrypt(), CKR_DEVICE_ERROR);
  EXPECT_FALSE(HasPlaintext());
  ExpectNoTrace();
}

TEST_F(WipingTest, PlaintextThatNeedsMoreRoomLeavesNothingInTheOldOne) {
  claims = {100000, kSecret.size()};
  EXPECT_EQ(Decrypt(), CKR_OK);
  EXPECT_TRUE(HasPlaintext());
  EXPECT_EQ(calls, 2u);
  ExpectNoTrace();
}

TEST_F(WipingTest, PlaintextThatGetsItsPaddingBackIsGone) {
  fake_.slots[0].mechanisms = {CKM_RSA_PKCS};
  EXPECT_EQ(Decrypt(CKM_RSA_X_509), CKR_OK);
  EXPECT_TRUE(HasPlaintext());
  EXPECT_EQ(size_, 256u);
  ExpectNoTrace();
}

TEST_F(WipingTest, InputThatWasPaddedIsGone) {
  functions_.C_Sign = [](CK_SESSION_HANDLE, CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
                         CK_ULONG* output_size) -> CK_RV {
    EXPECT_TRUE(std::equal(kSecret.begin(), kSecret.end(), input + size - kSecret.size()));
    *output = 1;
    *output_size = 1;
    return CKR_OK;
  };
  ASSERT_EQ(Init(kSign, CKM_RSA_X_509, rsa_), CKR_OK);
  size_ = plain.size();
  EXPECT_EQ(operation_.Run(kSign, kSecret.data(), kSecret.size(), plain.data(), &size_), CKR_OK);
  ExpectNoTrace();
}

}  // namespace
}  // namespace kelvrin::adapter
