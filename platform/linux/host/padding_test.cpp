#include "platform/linux/host/padding.h"

#include <gtest/gtest.h>

namespace host {
namespace {

TEST(Padding, AMessageWithoutRoomForPaddingIsRefused) {
  EXPECT_TRUE(PadPkcs1(Bytes(117), 128));
  const Result<Bytes> block = PadPkcs1(Bytes(118), 128);
  ASSERT_FALSE(block);
  EXPECT_EQ(block.error().domain, kOsStatusDomain);
  EXPECT_EQ(block.error().code, kParameterStatus);
  EXPECT_FALSE(PadPkcs1(Bytes(1), 0));
}

TEST(Padding, AKeyTooSmallForPssIsRefused) {
  EXPECT_EQ(PssMinimumKeyBits(Hash::kSha512), 1033U);
  EXPECT_FALSE(PadPss(Hash::kSha512, Bytes(64), 1032));
  EXPECT_FALSE(PadPss(Hash::kSha512, Bytes(64), 1033));  // passes the platform's test alone
  EXPECT_TRUE(PadPss(Hash::kSha512, Bytes(64), 1034));
  EXPECT_FALSE(PadPss(Hash::kSha1, Bytes(20), 0));
}

TEST(Padding, BlocksWithoutTheirPaddingAreRefused) {
  for (const Bytes& block : {Bytes(), Bytes(10), Bytes(256), Bytes(256, 0xFF)}) {
    EXPECT_FALSE(UnpadPkcs1(block)) << block.size();
    EXPECT_FALSE(UnpadOaep(Hash::kSha256, block)) << block.size();
  }
}

TEST(Padding, Pkcs1IsFilledWithOnesUpToTheMessage) {
  const Result<Bytes> block = PadPkcs1({0xAB, 0xCD}, 16);
  ASSERT_TRUE(block);
  Bytes expected = {0x00, 0x01};
  expected.resize(13, 0xFF);
  expected.insert(expected.end(), {0x00, 0xAB, 0xCD});
  EXPECT_EQ(*block, expected);
}

TEST(Padding, PssIsAsLongAsTheModulusAndSaltedAnewEachTime) {
  for (const size_t bits : {2047U, 2048U, 2049U}) {
    const Result<Bytes> one = PadPss(Hash::kSha256, Bytes(32, 1), bits);
    const Result<Bytes> other = PadPss(Hash::kSha256, Bytes(32, 1), bits);
    ASSERT_TRUE(one && other) << bits;
    EXPECT_EQ(one->size(), (bits + 7) / 8);
    EXPECT_NE(*one, *other);
    EXPECT_EQ(one->back(), 0xBC);
  }
}

TEST(Words, HaveTheLeastSignificantByteFirstAndFitTheModulus) {
  EXPECT_EQ(ToWords({1, 2, 3}), (Bytes{3, 2, 1}));
  EXPECT_EQ(*FromWords({3, 2, 1}, 5), (Bytes{0, 0, 1, 2, 3}));
  EXPECT_EQ(*FromWords({1, 2, 0}, 2), (Bytes{2, 1}));
  EXPECT_FALSE(FromWords({1, 2, 3}, 2));
}

}  // namespace
}  // namespace host
