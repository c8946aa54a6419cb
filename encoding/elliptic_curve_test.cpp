#include "encoding/elliptic_curve.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace kelvrin::encoding {
namespace {

const Bytes kP256Parameters = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};

Bytes Join(const Bytes& a, const Bytes& b) {
  Bytes joined = a;
  joined.insert(joined.end(), b.begin(), b.end());
  return joined;
}

Bytes Brainpool(unsigned char arc) {
  return {0x06, 0x09, 0x2b, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, arc};
}

Bytes Certicom(unsigned char arc) { return {0x06, 0x05, 0x2b, 0x81, 0x04, 0x00, arc}; }

TEST(CurveSizeTest, IsUnknownForAnythingButACompleteObjectIdentifier) {
  EXPECT_EQ(CurveSize({}), 0u);
  EXPECT_EQ(CurveSize(Bytes{0x06}), 0u);
  EXPECT_EQ(CurveSize(Bytes{0x06, 0x01, 0x2a}), 0u);
  EXPECT_EQ(CurveSize(Bytes{0x06, 0x80}), 0u);
  EXPECT_EQ(CurveSize(Bytes{0x06, 0x84, 0xff, 0xff, 0xff, 0xff}), 0u);
  EXPECT_EQ(CurveSize(Bytes(kP256Parameters.begin(), kP256Parameters.end() - 1)), 0u);
  EXPECT_EQ(CurveSize(Join(kP256Parameters, {0x00})), 0u);
  EXPECT_EQ(CurveSize(Join({0x30}, Bytes(kP256Parameters.begin() + 1, kP256Parameters.end()))), 0u);
  EXPECT_EQ(CurveSize(Brainpool(15)), 0u);
  EXPECT_EQ(CurveSize(Certicom(0x24)), 0u);
}

TEST(CurveSizeTest, KnowsTheNamedPrimeCurves) {
  EXPECT_EQ(CurveSize(kP256Parameters), 32u);
  EXPECT_EQ(CurveSize(Certicom(0x0a)), 32u);
  EXPECT_EQ(CurveSize(Certicom(0x21)), 28u);
  EXPECT_EQ(CurveSize(Certicom(0x22)), 48u);
  EXPECT_EQ(CurveSize(Certicom(0x23)), 66u);
  EXPECT_EQ(CurveSize(Brainpool(7)), 32u);
  EXPECT_EQ(CurveSize(Brainpool(9)), 40u);
  EXPECT_EQ(CurveSize(Brainpool(14)), 64u);
}

TEST(PublicPointTest, RefusesWhatIsNoPoint) {
  EXPECT_FALSE(ReadPublicPoint({}));
  EXPECT_FALSE(ReadPublicPoint(Bytes{0x04}));
  EXPECT_FALSE(ReadPublicPoint(Bytes(65, 0x05)));
  EXPECT_FALSE(ReadPublicPoint(Bytes(64, 0x04)));
  EXPECT_FALSE(ReadPublicPoint(Join({0x04, 0x41}, Bytes(65, 0x05))));
  EXPECT_FALSE(ReadPublicPoint(Join({0x04, 0x42}, Bytes(65, 0x04))));
}

class PublicPointSizeTest : public testing::TestWithParam<std::size_t> {};

TEST_P(PublicPointSizeTest, ReadsRawAndDerOfEachCurveSize) {
  const std::size_t size = GetParam();
  const Bytes raw = Join({0x04}, Bytes(2 * size, 0x3f));
  const auto from_raw = ReadPublicPoint(raw);
  ASSERT_TRUE(from_raw);
  EXPECT_EQ(from_raw->size, size);
  EXPECT_EQ(from_raw->raw, raw);
  EXPECT_EQ(from_raw->der.at(0), 0x04);

  const auto from_der = ReadPublicPoint(from_raw->der);
  ASSERT_TRUE(from_der);
  EXPECT_EQ(from_der->size, size);
  EXPECT_EQ(from_der->raw, raw);
  EXPECT_EQ(from_der->der, from_raw->der);
}
INSTANTIATE_TEST_SUITE_P(Curves, PublicPointSizeTest,
                         testing::Values(20, 24, 28, 32, 40, 48, 64, 66));

TEST(PublicPointTest, ReadsCompressedPoints) {
  const auto point = ReadPublicPoint(Join({0x03}, Bytes(32, 0x11)));
  ASSERT_TRUE(point);
  EXPECT_EQ(point->size, 32u);
}

}  // namespace
}  // namespace kelvrin::encoding
