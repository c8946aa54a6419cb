#include "encoding/elliptic_curve.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

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

TEST(CurveSizeTest, IsKnownForTheNamedPrimeCurvesAlone) {
  const Bytes& p256 = kP256Parameters;
  for (const auto& [parameters, size] : std::vector<std::pair<Bytes, std::size_t>>{
           {p256, 32},
           {Certicom(0x0a), 32},
           {Certicom(0x21), 28},
           {Certicom(0x22), 48},
           {Certicom(0x23), 66},
           {Brainpool(7), 32},
           {Brainpool(9), 40},
           {Brainpool(14), 64},
           {Brainpool(15), 0},
           {Certicom(0x24), 0},
           // Not one whole object identifier.
           {{}, 0},
           {{0x06}, 0},
           {{0x06, 0x01, 0x2a}, 0},
           {{0x06, 0x80}, 0},
           {{0x06, 0x84, 0xff, 0xff, 0xff, 0xff}, 0},
           {Bytes(p256.begin(), p256.end() - 1), 0},
           {Join(p256, {0x00}), 0},
           {Join({0x30}, Bytes(p256.begin() + 1, p256.end())), 0}}) {
    EXPECT_EQ(CurveSize(parameters), size) << testing::PrintToString(parameters);
  }
}

TEST(PublicPointTest, RefusesWhatIsNoPoint) {
  for (const Bytes& bytes :
       {Bytes(), Bytes{0x04}, Bytes(65, 0x05), Bytes(64, 0x04), Join({0x04, 0x41}, Bytes(65, 0x05)),
        Join({0x04, 0x42}, Bytes(65, 0x04))}) {
    EXPECT_FALSE(ReadPublicPoint(bytes)) << testing::PrintToString(bytes);
  }
}

TEST(PublicPointTest, ReadsRawAndDerOfEachCurveSizeAndCompressedPoints) {
  for (const std::size_t size : {20u, 24u, 28u, 32u, 40u, 48u, 64u, 66u}) {
    const Bytes raw = Join({0x04}, Bytes(2 * size, 0x3f));
    const auto from_raw = ReadPublicPoint(raw);
    ASSERT_TRUE(from_raw) << size;
    EXPECT_EQ(from_raw->der.at(0), 0x04);
    const auto from_der = ReadPublicPoint(from_raw->der);
    ASSERT_TRUE(from_der) << size;
    EXPECT_EQ(from_der->der, from_raw->der);
    for (const auto& point : {from_raw, from_der}) {
      EXPECT_EQ(point->size, size);
      EXPECT_EQ(point->raw, raw);
    }
  }
  const auto compressed = ReadPublicPoint(Join({0x03}, Bytes(32, 0x11)));
  ASSERT_TRUE(compressed);
  EXPECT_EQ(compressed->size, 32u);
}

}  // namespace
}  // namespace kelvrin::encoding
