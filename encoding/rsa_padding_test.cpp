#include "encoding/rsa_padding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

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

// A block with one byte changed.
Bytes Changed(std::size_t position) {
  Bytes block = Block(kSize - 3 - 5, {1, 2, 3, 4, 5});
  block[position] ^= 0x55;
  return block;
}

TEST(UnpadSignatureBlockTest, MessageIsReadFromAWholeBlockAlone) {
  const Bytes good = Block(kSize - 3 - 20, Bytes(20, 7));
  Bytes endless = Block(kSize - 3, {});
  endless.back() = 0xff;
  struct Row {
    const char* name;
    Bytes block;
    std::optional<Bytes> message = std::nullopt;
    std::size_t modulus = kSize;
  };
  for (const Row& row : std::vector<Row>{
           {"good", good, Bytes(20, 7)},
           {"without its leading zero", Bytes(good.begin() + 1, good.end()), Bytes(20, 7)},
           {"without the next byte", Bytes(good.begin() + 2, good.end())},
           {"empty message", Block(kSize - 3, {}), Bytes()},
           {"message that begins with zeros", Block(kSize - 6, {0, 0, 1}), Bytes{0, 0, 1}},
           {"the least filler", Block(8, Bytes(kSize - 11, 9)), Bytes(kSize - 11, 9)},
           {"less filler", Block(7, Bytes(kSize - 10, 9))},
           {"filler without an end", endless},
           {"changed zero", Changed(0)},
           {"changed type", Changed(1)},
           {"changed first filler", Changed(2)},
           {"changed filler", Changed(30)},
           {"changed last filler", Changed(57)},
           {"no block", {}},
           {"zeros", Bytes(kSize, 0)},
           {"ones", Bytes(kSize, 0xff)},
           {"modulus of no bytes", good, std::nullopt, 0},
           {"modulus of ten bytes", good, std::nullopt, 10},
           {"modulus that is shorter", good, std::nullopt, kSize - 1},
           {"modulus that is longer", good, std::nullopt, kSize + 1}}) {
    EXPECT_EQ(UnpadSignatureBlock(row.block, row.modulus), row.message) << row.name;
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
