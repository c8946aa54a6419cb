// A key operation over the fake module, with an RSA-2048 and a P-256 key.
#ifndef KELVRIN_ADAPTER_TESTING_KEY_OPERATION_FIXTURE_H_
#define KELVRIN_ADAPTER_TESTING_KEY_OPERATION_FIXTURE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

#include "adapter/key_operation.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {

inline constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
inline constexpr auto kSign = OperationKind::kSign;
inline constexpr auto kDecrypt = OperationKind::kDecrypt;

class KeyOperationTest : public testing::Test {
 protected:
  KeyOperationTest() {
    Bytes modulus(257, 0xab);
    modulus[0] = 0;
    rsa_ = fake_.Add({{CKA_MODULUS, modulus}});
    ec_ = fake_.Add({{CKA_EC_PARAMS, {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 7}}});
    const auto remember = [this](CK_MECHANISM_TYPE mechanism, const Bytes& input, Bytes* output) {
      mechanism_ = mechanism;
      input_ = input;
      *output = answer_;
      return result_;
    };
    fake_.sign = remember;
    fake_.decrypt = remember;
  }

  CK_RV Init(OperationKind kind, CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key) {
    CK_MECHANISM mechanism = {type, nullptr, 0};
    return operation_.Init(kind, &mechanism, key);
  }
  // Runs with `room` bytes of room; output_ gets what the caller's buffer holds then.
  CK_RV Run(OperationKind kind, const Bytes& input, std::size_t room = 1024) {
    output_.assign(room + 1, 0xee);
    size_ = room;
    const CK_RV result = operation_.Run(kind, input.data(), input.size(), output_.data(), &size_);
    EXPECT_EQ(output_.back(), 0xee) << "written past the end";
    output_.resize(std::min<std::size_t>(size_, room));
    return result;
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  Rules rules_ = Rules::Extension();
  TokenObjects objects_{functions_, rules_, 7};
  ContextLogin login_{functions_, 7};
  SessionHandles handles_;
  KeyOperation operation_{objects_, login_, handles_, 1, kFlags};
  CK_OBJECT_HANDLE rsa_ = 0;
  CK_OBJECT_HANDLE ec_ = 0;

  Bytes answer_ = {1, 2, 3};  // what the module answers, and with which result
  CK_RV result_ = CKR_OK;
  CK_MECHANISM_TYPE mechanism_ = 0;  // what it was given
  Bytes input_;
  Bytes output_;
  CK_ULONG size_ = 0;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TESTING_KEY_OPERATION_FIXTURE_H_
