// Plaintexts and keys that pass through an operation leave nothing in its memory.
#include <algorithm>
#include <array>
#include <memory>

#include "adapter/operations/testing/heap_watch.h"
#include "adapter/operations/testing/key_operation_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr std::array<CK_BYTE, 32> kSecret = {
    0x93, 0x1c, 0x77, 0xe2, 0x05, 0xba, 0x4e, 0xd8, 0x61, 0x3f, 0xc4, 0x2a, 0x8d, 0x16, 0xf9, 0x50,
    0xab, 0x34, 0xde, 0x67, 0x0b, 0x95, 0x72, 0xec, 0x18, 0xc1, 0x5f, 0xa6, 0x29, 0x83, 0x4d, 0xf0};

// The caller's buffer, which is not on the heap.
std::array<CK_BYTE, 256> plain;

class WipingTest : public CardTest {
 protected:
  WipingTest() {
    plain.fill(0);
    const auto write = [this](CK_SESSION_HANDLE session, CK_BYTE*, CK_ULONG, CK_BYTE* output,
                              CK_ULONG* size) {
      module.sessions.at(session).operation.reset();
      std::copy(kSecret.begin(), kSecret.end(), output);
      *size = claimed_;
      return result_;
    };
    module.over.C_Decrypt = write;
  }
  // Begins and runs an operation, and ends it with all that it holds.
  CK_RV Perform(OperationKind kind, CK_MECHANISM_TYPE mechanism, std::span<const CK_BYTE> input,
                CK_ULONG room = plain.size()) {
    TokenObjects objects(inner_, rules_, slot_);
    LockedPin pin;
    const auto operation = std::make_unique<KeyOperation>(objects, pin, session_, kFlags,
                                                          [](CK_SESSION_HANDLE) { return true; });
    EXPECT_EQ(operation->Init(kind, {mechanism, nullptr, 0}, rsa_), CKR_OK);
    const CK_RV result = operation->Run(kind, input.data(), input.size(), plain.data(), &room);
    operation->Close();
    return result;
  }
  CK_RV Decrypt(CK_MECHANISM_TYPE mechanism, CK_ULONG room = plain.size()) {
    constexpr std::array<CK_BYTE, 256> kInput = {};
    return Perform(OperationKind::kDecrypt, mechanism, kInput, room);
  }
  static bool HasPlaintext() {
    return std::search(plain.begin(), plain.end(), kSecret.begin(), kSecret.end()) != plain.end();
  }

  const CK_OBJECT_HANDLE rsa_ = card_.AddRsaKey({1}).private_key;
  CK_RV result_ = CKR_OK;
  CK_ULONG claimed_ = kSecret.size();
  const HeapWatch watch_{kSecret};
};

TEST_F(WipingTest, WatchSeesASecretThatGoes) {
  auto bytes = std::make_unique<std::vector<CK_BYTE>>(100);
  std::copy(kSecret.begin(), kSecret.end(), bytes->begin() + 7);
  bytes->clear();
  EXPECT_EQ(HeapWatch::Freed(), 0u);
  bytes.reset();
  EXPECT_EQ(HeapWatch::Freed(), 1u);
}

TEST_F(WipingTest, PlaintextsAreGoneWithTheirOperation) {
  for (const CK_MECHANISM_TYPE mechanism : {CKM_RSA_PKCS, CKM_RSA_X_509, CKM_RSA_X_509}) {
    plain.fill(0);
    EXPECT_EQ(Decrypt(mechanism), CKR_OK);
    EXPECT_TRUE(HasPlaintext());
    EXPECT_EQ(HeapWatch::Freed(), 0u) << mechanism;
    // The last time with its padding back.
    if (mechanism == CKM_RSA_X_509) card_.mechanisms = {CKM_RSA_PKCS};
  }
}

TEST_F(WipingTest, PlaintextsThatNobodyGotAreGoneToo) {
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS, 8), CKR_BUFFER_TOO_SMALL);
  result_ = CKR_DEVICE_ERROR;
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  result_ = CKR_OK;
  claimed_ = 100000;
  EXPECT_EQ(Decrypt(CKM_RSA_PKCS), CKR_DEVICE_ERROR);
  EXPECT_EQ(HeapWatch::Freed(), 0u);
  EXPECT_FALSE(HasPlaintext());
}

TEST_F(WipingTest, InputThatWasPaddedIsGone) {
  module.over.C_Sign = [](CK_SESSION_HANDLE, CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
                          CK_ULONG* output_size) -> CK_RV {
    EXPECT_TRUE(std::equal(kSecret.begin(), kSecret.end(), input + size - kSecret.size()));
    *output = 1;
    *output_size = 1;
    return CKR_OK;
  };
  EXPECT_EQ(Perform(OperationKind::kSign, CKM_RSA_X_509, kSecret), CKR_OK);
  EXPECT_EQ(HeapWatch::Freed(), 0u);
}

}  // namespace
}  // namespace kelvrin::adapter
