// A key operation on a card with an RSA-2048 and a P-256 key, and what the module is given of it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>

#include "adapter/operations/key_operation.h"
#include "adapter/testing/card_fixture.h"
#include "tests/module/fault_chain.h"
#include "tests/module/faults.h"

namespace kelvrin::adapter {

inline constexpr CK_FLAGS kFlags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
inline constexpr auto kSign = OperationKind::kSign;
inline constexpr auto kDecrypt = OperationKind::kDecrypt;

class KeyOperationTest : public CardTest {
 protected:
  KeyOperationTest() {
    Watch<&MemoryEntries::C_Sign>();
    Watch<&MemoryEntries::C_Decrypt>();
  }

  CK_RV Init(OperationKind kind, CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key) {
    return operation_.Init(kind, {type, nullptr, 0}, key);
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
  // Both, where the beginning succeeds.
  CK_RV Perform(OperationKind kind, CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key,
                const Bytes& input) {
    const CK_RV result = Init(kind, type, key);
    return result == CKR_OK ? Run(kind, input) : result;
  }
  // The module fails when it is asked how long a signature will be.
  void RefuseQuestions() {
    faults::Chain<&MemoryEntries::C_Sign>(
        module,
        [](auto next, CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
           CK_ULONG* output_size) -> CK_RV {
          if (output == nullptr) return CKR_FUNCTION_FAILED;
          return next(session, input, size, output, output_size);
        });
  }
  // Whether the module has the caller's session alone.
  bool HasNoWorker() const { return module.sessions.size() == 1; }

  const CK_OBJECT_HANDLE rsa_ =
      card_.AddRsaKey({1}, {.certificate = false, .public_key = false}).private_key;
  const CK_OBJECT_HANDLE ec_ =
      card_.AddEcKey({2}, {.certificate = false, .public_key = false}).private_key;
  LockedPin pin_;
  std::vector<CK_SESSION_HANDLE> noted_;
  KeyOperation operation_{objects_, pin_, session_, kFlags, [this](CK_SESSION_HANDLE handle) {
                            noted_.push_back(handle);
                            return true;
                          }};

  std::optional<Bytes> answer_;      // what the module answers in place of a real result
  CK_MECHANISM_TYPE mechanism_ = 0;  // what it was given
  Bytes input_;
  std::size_t asked_with_ = 0;  // bytes of input with which it was asked for a length
  Bytes output_;
  CK_ULONG size_ = 0;

 private:
  template <auto over>
  void Watch() {
    faults::Chain<over>(module, [this](auto next, CK_SESSION_HANDLE session, CK_BYTE* input,
                                       CK_ULONG size, CK_BYTE* output, CK_ULONG* output_size) {
      MemorySession& open = module.sessions.at(session);
      if (output == nullptr) {
        asked_with_ = size;
      } else {
        mechanism_ = open.operation->mechanism;
        input_.assign(input, input + size);
      }
      if (!answer_) return next(session, input, size, output, output_size);
      const CK_ULONG room = std::min<CK_ULONG>(*output_size, answer_->size());
      *output_size = answer_->size();
      if (output == nullptr) return CK_RV{CKR_OK};
      std::copy_n(answer_->begin(), room, output);
      open.operation.reset();
      return CK_RV{CKR_OK};
    });
  }
};

}  // namespace kelvrin::adapter
