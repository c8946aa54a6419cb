#include "modulecheck/der.h"

#include <gtest/gtest.h>

namespace kelvrin::modulecheck {
namespace {

Bytes Number(std::size_t size, CK_BYTE first) {
  Bytes number(size, 0x11);
  number[0] = first;
  return number;
}

Bytes Signature(const Bytes& r, const Bytes& s) {
  Bytes der = {0x30, static_cast<CK_BYTE>(4 + r.size() + s.size())};
  for (const Bytes& number : {r, s}) {
    der.push_back(0x02);
    der.push_back(static_cast<CK_BYTE>(number.size()));
    der.insert(der.end(), number.begin(), number.end());
  }
  return der;
}

TEST(DerTest, ASignatureGivesItsNumbersInFullSize) {
  const Bytes der = Signature({0x05}, Number(33, 0x00));
  Bytes high = der;
  high[8] = 0x80;  // what the zero before it is for
  const Bytes raw = RawEcdsaSignature(high, 32).value_or(Bytes());
  ASSERT_EQ(raw.size(), 64u);
  EXPECT_EQ(raw[31], 0x05);
  EXPECT_EQ(raw[0], 0);
  EXPECT_EQ(raw[32], 0x80);
}

TEST(DerTest, WhatIsNotMinimalIsNoSignature) {
  EXPECT_TRUE(RawEcdsaSignature(Signature({1}, {2}), 32));
  EXPECT_FALSE(RawEcdsaSignature(Signature({0x00, 0x01}, {2}), 32));
  EXPECT_FALSE(RawEcdsaSignature(Signature({0x80}, {2}), 32));
  EXPECT_FALSE(RawEcdsaSignature(Signature({0x00}, {2}), 32));
  EXPECT_FALSE(RawEcdsaSignature(Signature({}, {2}), 32));
  EXPECT_FALSE(RawEcdsaSignature(Signature(Number(33, 0x11), {2}), 32));
}

TEST(DerTest, WhatIsCutOrHasMoreBehindItIsNoSignature) {
  const Bytes der = Signature(Number(32, 0x11), Number(32, 0x22));
  EXPECT_TRUE(RawEcdsaSignature(der, 32));
  Bytes longer = der;
  longer.push_back(0);
  EXPECT_FALSE(RawEcdsaSignature(longer, 32));
  for (std::size_t size = 0; size < der.size(); ++size) {
    EXPECT_FALSE(RawEcdsaSignature(std::span(der).first(size), 32)) << size;
  }
}

TEST(DerTest, RawNumbersAreNoSignatureInDer) {
  EXPECT_FALSE(RawEcdsaSignature(Bytes(64, 0x30), 32));
  EXPECT_FALSE(RawEcdsaSignature(Bytes(64, 0x00), 32));
}

TEST(DerTest, ASequenceFillsItsBytes) {
  Bytes sequence = {0x30, 0x82, 0x01, 0x00};
  sequence.resize(4 + 256);
  EXPECT_TRUE(IsSequence(sequence));
  sequence.push_back(0);
  EXPECT_FALSE(IsSequence(sequence));
  sequence.resize(100);
  EXPECT_FALSE(IsSequence(sequence));
  EXPECT_FALSE(IsSequence(Bytes{0x31, 0x00}));
  EXPECT_FALSE(IsSequence(Bytes{0x30, 0x80, 0x00, 0x00}));
  EXPECT_FALSE(IsSequence(Bytes{0x30, 0x81, 0x01, 0x00}));
  EXPECT_FALSE(IsSequence(Bytes{}));
}

}  // namespace
}  // namespace kelvrin::modulecheck
