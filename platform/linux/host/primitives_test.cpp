// Padding, signature encodings and key derivation.
#include <gtest/gtest.h>

#include "platform/linux/host/ecdsa_signature.h"
#include "platform/linux/host/padding.h"
#include "platform/linux/host/rsa_words.h"
#include "platform/linux/host/shared_secret.h"
#include "platform/linux/host/testing/openssl_key.h"

namespace host {
namespace {

using testing::bytes;

TEST(Padding, AMessageWithoutRoomForPaddingIsRefused) {
  EXPECT_TRUE(pad_pkcs1(Bytes(117), 128));
  const Result<Bytes> block = pad_pkcs1(Bytes(118), 128);
  ASSERT_FALSE(block);
  EXPECT_EQ(block.error().domain, kOsStatusDomain);
  EXPECT_EQ(block.error().code, kParameterStatus);
  EXPECT_FALSE(pad_pkcs1(Bytes(1), 0));
}

TEST(Padding, AKeyTooSmallForPssIsRefused) {
  EXPECT_EQ(pss_minimum_key_bits(Hash::kSha512), 1033U);
  EXPECT_FALSE(pad_pss(Hash::kSha512, Bytes(64), 1032));
  EXPECT_FALSE(pad_pss(Hash::kSha512, Bytes(64), 1033));  // passes the platform's test alone
  EXPECT_TRUE(pad_pss(Hash::kSha512, Bytes(64), 1034));
  EXPECT_FALSE(pad_pss(Hash::kSha1, Bytes(20), 0));
}

TEST(Padding, BlocksWithoutTheirPaddingAreRefused) {
  for (const Bytes& block : {Bytes(), Bytes(10), Bytes(256), Bytes(256, 0xFF)}) {
    EXPECT_FALSE(unpad_pkcs1(block)) << block.size();
    EXPECT_FALSE(unpad_oaep(Hash::kSha256, block)) << block.size();
  }
}

TEST(Padding, Pkcs1IsFilledWithOnesUpToTheMessage) {
  const Result<Bytes> block = pad_pkcs1({0xAB, 0xCD}, 16);
  ASSERT_TRUE(block);
  Bytes expected = {0x00, 0x01};
  expected.resize(13, 0xFF);
  expected.insert(expected.end(), {0x00, 0xAB, 0xCD});
  EXPECT_EQ(*block, expected);
}

TEST(Padding, PssIsAsLongAsTheModulusAndSaltedAnewEachTime) {
  for (const size_t bits : {2047U, 2048U, 2049U}) {
    const Result<Bytes> one = pad_pss(Hash::kSha256, Bytes(32, 1), bits);
    const Result<Bytes> other = pad_pss(Hash::kSha256, Bytes(32, 1), bits);
    ASSERT_TRUE(one && other) << bits;
    EXPECT_EQ(one->size(), (bits + 7) / 8);
    EXPECT_NE(*one, *other);
    EXPECT_EQ(one->back(), 0xBC);
  }
}

TEST(RsaWords, ANumberLongerThanTheModulusIsRefused) {
  EXPECT_FALSE(from_words(Bytes{1, 2, 3}, 2));
  EXPECT_TRUE(from_words(Bytes{1, 2, 0}, 2));
}

TEST(RsaWords, TheLeastSignificantByteComesFirst) {
  EXPECT_EQ(to_words({1, 2, 3}), (Bytes{3, 2, 1}));
  const Result<Bytes> number = from_words({3, 2, 1}, 5);
  ASSERT_TRUE(number);
  EXPECT_EQ(*number, (Bytes{0, 0, 1, 2, 3}));
}

TEST(EcdsaSignature, AnythingButADerSequenceOfTwoPositiveIntegersIsRefused) {
  const Bytes good = {0x30, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x07};
  ASSERT_TRUE(is_der_ecdsa_signature(good));
  Bytes longer = good;
  longer.push_back(0);
  const Bytes bad[] = {
      {},
      {0x30},
      Bytes(64, 0x11),  // r and s side by side
      longer,
      {0x30, 0x03, 0x02, 0x01, 0x05},                                      // no s
      {0x30, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x00},                    // s is zero
      {0x30, 0x06, 0x02, 0x01, 0xFB, 0x02, 0x01, 0x07},                    // r is negative
      {0x30, 0x81, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x07},              // BER length
      {0x30, 0x09, 0x02, 0x01, 0x05, 0x02, 0x01, 0x07, 0x02, 0x01, 0x09},  // a third number
  };
  for (const Bytes& signature : bad) {
    EXPECT_FALSE(is_der_ecdsa_signature(signature)) << signature.size();
    const Result<Bytes> fixed = der_to_rfc4754(signature, 32);
    ASSERT_FALSE(fixed);
    EXPECT_EQ(fixed.error().code, kDecodeStatus);
  }
}

TEST(EcdsaSignature, NumbersLongerThanTheFieldAreRefused) {
  EXPECT_FALSE(der_to_rfc4754({0x30, 0x07, 0x02, 0x02, 0x05, 0x05, 0x02, 0x01, 0x07}, 1));
}

TEST(EcdsaSignature, NumbersFillTheFieldFromTheRight) {
  const Result<Bytes> fixed =
      der_to_rfc4754({0x30, 0x07, 0x02, 0x02, 0x00, 0x85, 0x02, 0x01, 0x07}, 2);
  ASSERT_TRUE(fixed);
  EXPECT_EQ(*fixed, (Bytes{0x00, 0x85, 0x00, 0x07}));
}

TEST(SharedSecret, NoKeyIsDerivedInNoBytes) {
  EXPECT_FALSE(derive_x963(Hash::kSha256, Bytes(32, 1), {}, 0));
}

// K = SHA-256(Z || counter || shared info), the counter from 1 in four bytes.
TEST(SharedSecret, KeysAreDerivedByCountedHashes) {
  const Bytes secret(32, 0x42);
  const Bytes info = bytes("info");
  Bytes expected;
  for (const uint8_t counter : {uint8_t{1}, uint8_t{2}}) {
    Bytes block = secret;
    block.insert(block.end(), {0, 0, 0, counter});
    block.insert(block.end(), info.begin(), info.end());
    const Bytes hash = digest(Hash::kSha256, block);
    expected.insert(expected.end(), hash.begin(), hash.end());
  }
  expected.resize(40);
  const Result<Bytes> derived = derive_x963(Hash::kSha256, secret, info, 40);
  ASSERT_TRUE(derived);
  EXPECT_EQ(*derived, expected);
}

TEST(SharedSecret, ATamperedMessageIsNotOpened) {
  const Bytes key(16, 7);
  const Bytes iv(16);
  const Bytes sealed = testing::seal_aes_gcm(key, iv, bytes("us"), bytes("message"));
  EXPECT_FALSE(open_aes_gcm(key, iv, bytes("them"), sealed));
  EXPECT_FALSE(open_aes_gcm(Bytes(16, 8), iv, bytes("us"), sealed));
  EXPECT_FALSE(open_aes_gcm(Bytes(24, 7), iv, bytes("us"), sealed));
  EXPECT_FALSE(open_aes_gcm(key, iv, bytes("us"), Bytes(15)));
  const Result<Bytes> message = open_aes_gcm(key, iv, bytes("us"), sealed);
  ASSERT_TRUE(message);
  EXPECT_EQ(*message, bytes("message"));
}

}  // namespace
}  // namespace host
