#include "encoding/ecdsa_signature.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvrin::encoding {
namespace {

TEST(EcdsaSignatureTest, NumbersAreAsShortAsDerAsks) {
  EXPECT_EQ(EcdsaSignatureToDer(Bytes{0x00, 0x00, 0x7f, 0x00, 0x00, 0x01}),
            (Bytes{0x30, 0x06, 0x02, 0x01, 0x7f, 0x02, 0x01, 0x01}));
  EXPECT_EQ(EcdsaSignatureToDer(Bytes{0x00, 0x80, 0xff, 0x00}),
            (Bytes{0x30, 0x09, 0x02, 0x02, 0x00, 0x80, 0x02, 0x03, 0x00, 0xff, 0x00}));
  EXPECT_EQ(EcdsaSignatureToDer(Bytes{0x00, 0x00}),
            (Bytes{0x30, 0x06, 0x02, 0x01, 0x00, 0x02, 0x01, 0x00}));
}

TEST(EcdsaSignatureTest, LongSignaturesGetLongLengths) {
  const Bytes der = EcdsaSignatureToDer(Bytes(132, 0xff));  // P-521
  ASSERT_EQ(der.size(), 141u);
  EXPECT_EQ(der[0], 0x30);
  EXPECT_EQ(der[1], 0x81);
  EXPECT_EQ(der[2], 138);
  EXPECT_TRUE(IsDerSignature(der));
  const Bytes longer = EcdsaSignatureToDer(Bytes(600, 0x01));
  EXPECT_EQ(longer[1], 0x82);
  EXPECT_TRUE(IsDerSignature(longer));
}

TEST(DerSignatureTest, TellsDerFromOtherBytes) {
  const Bytes der = EcdsaSignatureToDer(Bytes(64, 0x42));
  EXPECT_TRUE(IsDerSignature(der));
  EXPECT_FALSE(IsDerSignature({}));
  EXPECT_FALSE(IsDerSignature(Bytes(64, 0x30)));
  EXPECT_FALSE(IsDerSignature(Bytes(der.begin(), der.end() - 1)));
  Bytes longer = der;
  longer.push_back(0);
  EXPECT_FALSE(IsDerSignature(longer));
  EXPECT_FALSE(IsDerSignature(Bytes{0x30, 0x03, 0x02, 0x01, 0x01}));
  EXPECT_FALSE(IsDerSignature(Bytes{0x30, 0x04, 0x02, 0x00, 0x02, 0x00}));
  EXPECT_FALSE(IsDerSignature(Bytes{0x30, 0x06, 0x02, 0x01, 0x00, 0x02, 0x01, 0x01})) << "zero";
  EXPECT_FALSE(IsDerSignature(Bytes{0x30, 0x07, 0x02, 0x02, 0x00, 0x01, 0x02, 0x01, 0x01}));
}

TEST(RawSignatureTest, NumbersStandAtTheEndOfTheirHalves) {
  const Bytes der = {0x30, 0x07, 0x02, 0x01, 0x7f, 0x02, 0x02, 0x00, 0x80};
  EXPECT_EQ(EcdsaSignatureToRaw(der, 2), (Bytes{0x00, 0x7f, 0x00, 0x80}));
  EXPECT_EQ(EcdsaSignatureToRaw(der, 1), (Bytes{0x7f, 0x80}));
  EXPECT_FALSE(EcdsaSignatureToRaw(der, 0)) << "no room";
  EXPECT_FALSE(EcdsaSignatureToRaw(Bytes(der.begin(), der.end() - 1), 2));
  const Bytes raw(132, 0xff);
  EXPECT_EQ(EcdsaSignatureToRaw(EcdsaSignatureToDer(raw), 66), raw);
}

}  // namespace
}  // namespace kelvrin::encoding
