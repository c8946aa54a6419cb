#include "encoding/rsa_padding.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvrin::encoding {
namespace {

constexpr std::size_t kSize = 64;

// 00 01 FF... 00 message, with `filler` bytes of FF.
Bytes Block(std::size_t filler, const Bytes& message) {
  Bytes block = {0, 1};
  block.insert(block.end(), filler, 0xff);
  block.push_back(0);
  block.insert(block.end(), message.begin(), message.end());
  return block;
}

TEST(UnpadSignatureBlockTest, OtherBlocksAreNone) {
  const Bytes good = Block(kSize - 3 - 5, {1, 2, 3, 4, 5});
  ASSERT_TRUE(UnpadSignatureBlock(good, kSize));
  for (const std::size_t position : {0u, 1u, 2u, 30u, 57u}) {
    Bytes bad = good;
    bad[position] ^= 0x55;
    EXPECT_FALSE(UnpadSignatureBlock(bad, kSize)) << position;
  }
  EXPECT_FALSE(UnpadSignatureBlock({}, kSize));
  EXPECT_FALSE(UnpadSignatureBlock(Bytes(kSize, 0), kSize));
  EXPECT_FALSE(UnpadSignatureBlock(Bytes(kSize, 0xff), kSize));
}

TEST(UnpadSignatureBlockTest, BlockWithoutEndOfItsFillerIsNone) {
  Bytes block(kSize, 0xff);
  block[0] = 0;
  block[1] = 1;
  EXPECT_FALSE(UnpadSignatureBlock(block, kSize));
}

TEST(UnpadSignatureBlockTest, EightBytesOfFillerAreTheLeast) {
  EXPECT_FALSE(UnpadSignatureBlock(Block(7, Bytes(kSize - 10, 9)), kSize));
  EXPECT_EQ(UnpadSignatureBlock(Block(8, Bytes(kSize - 11, 9)), kSize), Bytes(kSize - 11, 9));
}

TEST(UnpadSignatureBlockTest, MessageMayBeEmptyOrBeginWithZeros) {
  EXPECT_EQ(UnpadSignatureBlock(Block(kSize - 3, {}), kSize), Bytes());
  EXPECT_EQ(UnpadSignatureBlock(Block(kSize - 6, {0, 0, 1}), kSize), (Bytes{0, 0, 1}));
}

TEST(UnpadSignatureBlockTest, LeadingZeroMayBeLackingAndNothingElse) {
  Bytes block = Block(kSize - 3 - 20, Bytes(20, 7));
  block.erase(block.begin());
  EXPECT_EQ(UnpadSignatureBlock(block, kSize), Bytes(20, 7));
  block.erase(block.begin());
  EXPECT_FALSE(UnpadSignatureBlock(block, kSize));
}

TEST(UnpadSignatureBlockTest, BlockOfAnotherSizeThanTheModulusIsNone) {
  const Bytes block = Block(kSize - 3 - 20, Bytes(20, 7));
  for (const std::size_t size : {std::size_t{0}, std::size_t{10}, kSize - 1, kSize + 1}) {
    EXPECT_FALSE(UnpadSignatureBlock(block, size)) << size;
  }
}

TEST(PadDecryptedMessageTest, MessageThatLeavesNoRoomForTheFillerHasNoBlock) {
  EXPECT_TRUE(PadDecryptedMessage(Bytes(kSize - 10, 1), kSize).empty());
  EXPECT_TRUE(PadDecryptedMessage(Bytes(10000, 1), kSize).empty());
  EXPECT_TRUE(PadDecryptedMessage({}, 0).empty());
  EXPECT_TRUE(PadDecryptedMessage({}, 10).empty());
}

TEST(PadDecryptedMessageTest, BlockHasItsFillerAndTheMessage) {
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, kSize - 11}) {
    const Bytes message(length, 0);
    const Bytes block = PadDecryptedMessage(message, kSize);
    ASSERT_EQ(block.size(), kSize);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[1], 2);
    const auto end = std::find(block.begin() + 2, block.end(), 0);
    EXPECT_GE(end - block.begin(), 10);
    EXPECT_EQ(Bytes(end + 1, block.end()), message);
  }
}

}  // namespace
}  // namespace kelvrin::encoding
