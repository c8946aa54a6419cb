#include "modulecheck/rsa_public.h"

#include <gtest/gtest.h>

namespace kelvrin::modulecheck {
namespace {

Bytes FromHex(std::string_view hex) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<CK_BYTE>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

Bytes FromText(std::string_view text) { return {text.begin(), text.end()}; }

// 520 bits; the power was computed with another program.
const Bytes kModulus = FromHex(
    "bb83b66187083eaf36d6a5aad24e80be7103e31dd8cab9356775233a4d17ffb4e75ed4e63eb654592463a5020294ee"
    "4f4b377bd8ba1e3c0aa5817de66486f75463");
constexpr char kMessage[] = "a block of bytes that is not very long, but longer than a word";
constexpr char kPower[] =
    "a8038e406e07ee450b3e0b2454c388e684728b68ed3a130aaa4431dbebdec1a6d1571530bc3a7115022535b000cf38"
    "466a2859c432102486742584e8ac771594b6";
const RsaPublicKey kKey = {kModulus, {1, 0, 1}};

// No bytes when it is refused.
Bytes Apply(const RsaPublicKey& key, const Bytes& block) {
  return ApplyPublicKey(key, block).value_or(Bytes());
}

TEST(RsaPublicTest, ABlockIsRaisedToTheExponent) {
  EXPECT_EQ(Hex(Apply(kKey, FromText(kMessage))), kPower);
}

TEST(RsaPublicTest, ZerosInFrontChangeNothing) {
  Bytes modulus = kModulus;
  modulus.insert(modulus.begin(), 2, 0);
  Bytes block = FromText(kMessage);
  block.insert(block.begin(), 9, 0);
  const RsaPublicKey key = {modulus, {0, 1, 0, 1}};
  EXPECT_EQ(ModulusSize(key), kModulus.size());
  EXPECT_EQ(Hex(Apply(key, block)), kPower);
}

TEST(RsaPublicTest, SmallNumbersStaySmall) {
  Bytes one(kModulus.size(), 0);
  one.back() = 1;
  EXPECT_EQ(Apply(kKey, Bytes{1}), one);
  Bytes cube(kModulus.size(), 0);
  cube.back() = 125;
  EXPECT_EQ(Apply({kModulus, {3}}, Bytes{5}), cube);
}

TEST(RsaPublicTest, WhatIsNoKeyOrNoBlockIsRefused) {
  const Bytes block = {2};
  EXPECT_FALSE(ApplyPublicKey({{}, {1, 0, 1}}, block));
  EXPECT_FALSE(ApplyPublicKey({kModulus, {}}, block));
  EXPECT_FALSE(ApplyPublicKey({kModulus, {2}}, block));
  EXPECT_FALSE(ApplyPublicKey({kModulus, Bytes(9, 1)}, block));
  EXPECT_FALSE(ApplyPublicKey({Bytes(32, 0xff), {3}}, block));
  EXPECT_FALSE(ApplyPublicKey({Bytes(4096, 0xff), {3}}, block));
  EXPECT_FALSE(ApplyPublicKey(kKey, kModulus));
  EXPECT_FALSE(ApplyPublicKey(kKey, Bytes(kModulus.size() + 1, 1)));
}

TEST(RsaPublicTest, BlocksAreLaidOutAsPkcs1Says) {
  const Bytes encryption = EncryptionBlock(FromText("message"), 64);
  ASSERT_EQ(encryption.size(), 64u);
  EXPECT_EQ(Hex(std::span(encryption).first(2)), "0002");
  EXPECT_EQ(std::find(encryption.begin() + 2, encryption.end(), 0) - encryption.begin(), 56);
  EXPECT_EQ(Bytes(encryption.end() - 7, encryption.end()), FromText("message"));

  const Bytes signature = SignatureBlock(Bytes(32, 0xab), 64);
  ASSERT_EQ(signature.size(), 64u);
  EXPECT_EQ(Hex(std::span(signature).first(13)), "0001ffffffffffffffffffff00");
  EXPECT_EQ(Hex(std::span(signature).subspan(13, 19)), "3031300d060960864801650304020105000420");
}

}  // namespace
}  // namespace kelvrin::modulecheck
