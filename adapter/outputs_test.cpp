#include "adapter/outputs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace kelvrin::adapter {
namespace {

constexpr CK_ULONG kUnlimited = std::numeric_limits<CK_ULONG>::max();
constexpr CK_BYTE kUntouched = 0xee;

class WriteOutputTest : public testing::Test {
 protected:
  // A module that writes `written` bytes, claims `claimed` and answers `answer`.
  OutputCall Module(CK_RV answer, CK_ULONG claimed, std::size_t written = 0) {
    return [this, answer, claimed, written](CK_BYTE* output, CK_ULONG* size) {
      was_query_ = output == nullptr;
      rooms_.push_back(*size);
      if (output != nullptr) std::fill_n(output, written, CK_BYTE{7});
      *size = claimed;
      return answer;
    };
  }
  CK_RV Write(const OutputCall& call, CK_ULONG room, CK_ULONG input = 0) {
    size_ = room;
    return WriteOutput(call, input, buffer_.data(), &size_);
  }
  bool IsUntouched() const {
    return std::all_of(buffer_.begin(), buffer_.end(), [](CK_BYTE b) { return b == kUntouched; });
  }

  std::vector<CK_BYTE> buffer_ = std::vector<CK_BYTE>(16, kUntouched);
  CK_ULONG size_ = 0;
  bool was_query_ = false;
  std::vector<CK_ULONG> rooms_;  // what the module was offered, call by call
};

TEST_F(WriteOutputTest, MissingLengthNeverReachesTheModule) {
  EXPECT_EQ(WriteOutput(Module(CKR_OK, 0), 0, buffer_.data(), nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_TRUE(rooms_.empty());
}

TEST_F(WriteOutputTest, FailureLeavesBufferAndLengthAsTheyWere) {
  EXPECT_EQ(Write(Module(CKR_DEVICE_ERROR, 3, 16), 16), CKR_DEVICE_ERROR);
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(size_, 16u);
}

TEST_F(WriteOutputTest, ClaimOfMoreThanTheRoomIsADeviceErrorAndNothingIsCopied) {
  for (const CK_ULONG claim : {CK_ULONG{17}, CK_UNAVAILABLE_INFORMATION}) {
    EXPECT_EQ(Write(Module(CKR_OK, claim, 16), 16), CKR_DEVICE_ERROR);
    EXPECT_TRUE(IsUntouched());
    EXPECT_EQ(size_, 16u);
  }
}

TEST_F(WriteOutputTest, BytesWithinTheRoomGetThere) {
  EXPECT_EQ(Write(Module(CKR_OK, 4, 16), 16), CKR_OK);
  EXPECT_EQ(size_, 4u);
  EXPECT_EQ(buffer_[3], 7);
  EXPECT_EQ(buffer_[4], kUntouched);
}

TEST_F(WriteOutputTest, WhatTheModuleDidNotWriteIsZero) {
  EXPECT_EQ(Write(Module(CKR_OK, 4), 16), CKR_OK);
  EXPECT_EQ(buffer_[0], 0);
}

TEST_F(WriteOutputTest, SmallBufferGetsTheNeededLength) {
  EXPECT_EQ(Write(Module(CKR_BUFFER_TOO_SMALL, 40, 16), 16), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(size_, 40u);
  EXPECT_TRUE(IsUntouched());
  EXPECT_EQ(rooms_, std::vector<CK_ULONG>{16});
}

TEST_F(WriteOutputTest, BufferWithoutRoomIsNoQuestionForTheSize) {
  EXPECT_EQ(Write(Module(CKR_BUFFER_TOO_SMALL, 4), 0), CKR_BUFFER_TOO_SMALL);
  EXPECT_FALSE(was_query_);
  EXPECT_EQ(size_, 4u);
}

TEST_F(WriteOutputTest, QuestionForTheSizeIsHandedOn) {
  size_ = 1;
  EXPECT_EQ(WriteOutput(Module(CKR_OK, 40), 0, nullptr, &size_), CKR_OK);
  EXPECT_TRUE(was_query_);
  EXPECT_EQ(size_, 40u);
  EXPECT_EQ(WriteOutput(Module(CKR_KEY_HANDLE_INVALID, 7), 0, nullptr, &size_),
            CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(size_, 40u);
}

TEST_F(WriteOutputTest, SizeThatCannotBeIsADeviceError) {
  size_ = 16;
  EXPECT_EQ(WriteOutput(Module(CKR_OK, CK_UNAVAILABLE_INFORMATION), 0, nullptr, &size_),
            CKR_DEVICE_ERROR);
  EXPECT_EQ(Write(Module(CKR_BUFFER_TOO_SMALL, CK_UNAVAILABLE_INFORMATION), 16), CKR_DEVICE_ERROR);
  EXPECT_EQ(size_, 16u);
}

TEST_F(WriteOutputTest, AbsurdRoomIsNotBelieved) {
  EXPECT_EQ(Write(Module(CKR_OK, 4, 4), kUnlimited, 100), CKR_OK);
  EXPECT_EQ(size_, 4u);
  EXPECT_EQ(rooms_, std::vector<CK_ULONG>{100 + 65536});
  EXPECT_EQ(Write(Module(CKR_OK, 65537), kUnlimited), CKR_DEVICE_ERROR);
  EXPECT_EQ(Write(Module(CKR_BUFFER_TOO_SMALL, kUnlimited), kUnlimited), CKR_DEVICE_ERROR);
  EXPECT_EQ(rooms_.size(), 3u);
}

TEST_F(WriteOutputTest, LongResultIsAskedForAgainWithTheRoomThatItNeeds) {
  buffer_.assign(100000, kUntouched);
  const OutputCall module = [&](CK_BYTE* output, CK_ULONG* size) -> CK_RV {
    rooms_.push_back(*size);
    const bool fits = *size >= 70000;
    *size = 70000;
    if (fits) std::fill_n(output, 70000, CK_BYTE{7});
    return fits ? CKR_OK : CKR_BUFFER_TOO_SMALL;
  };
  EXPECT_EQ(Write(module, buffer_.size()), CKR_OK);
  EXPECT_EQ(size_, 70000u);
  EXPECT_EQ(buffer_[69999], 7);
  EXPECT_EQ(buffer_[70000], kUntouched);
  EXPECT_EQ(rooms_, (std::vector<CK_ULONG>{65536, 70000}));
}

}  // namespace
}  // namespace kelvrin::adapter
