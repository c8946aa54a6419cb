#include "encoding/der.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace kelvrin::encoding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An element whose length is told by these bytes.
Bytes WithLength(const Bytes& length, std::size_t content_size) {
  Bytes bytes = {kDerOctetString};
  bytes.insert(bytes.end(), length.begin(), length.end());
  bytes.resize(bytes.size() + content_size, 7);
  return bytes;
}

bool IsTaken(const Bytes& bytes) {
  DerReader reader(bytes);
  return reader.Take().has_value();
}

TEST(DerReaderTest, TakesOneElementAfterTheOther) {
  const Bytes bytes = {0x02, 1, 5, 0x05, 0, 0x04, 2, 8, 9};
  DerReader reader(bytes);
  const auto number = reader.Take();
  ASSERT_TRUE(number);
  EXPECT_EQ(number->tag, kDerInteger);
  EXPECT_THAT(number->content, ElementsAre(5));
  EXPECT_THAT(number->whole, ElementsAre(2, 1, 5));
  const auto null = reader.Take();
  ASSERT_TRUE(null);
  EXPECT_EQ(null->tag, kDerNull);
  EXPECT_THAT(null->content, IsEmpty());
  EXPECT_FALSE(reader.IsAtEnd());
  const auto octets = reader.Take();
  ASSERT_TRUE(octets);
  EXPECT_THAT(octets->content, ElementsAre(8, 9));
  EXPECT_TRUE(reader.IsAtEnd());
  EXPECT_FALSE(reader.Take());
}

TEST(DerReaderTest, ElementWithAnotherTagIsLeft) {
  const Bytes bytes = {0x02, 1, 5};
  DerReader reader(bytes);
  EXPECT_FALSE(reader.Take(kDerBoolean));
  EXPECT_TRUE(reader.Take(kDerInteger));
  EXPECT_FALSE(reader.Take(kDerInteger));
}

TEST(DerReaderTest, LengthsInTheirShortestFormAreTaken) {
  EXPECT_TRUE(IsTaken(WithLength({0}, 0)));
  EXPECT_TRUE(IsTaken(WithLength({0x7f}, 0x7f)));
  EXPECT_TRUE(IsTaken(WithLength({0x81, 0x80}, 0x80)));
  EXPECT_TRUE(IsTaken(WithLength({0x81, 0xff}, 0xff)));
  EXPECT_TRUE(IsTaken(WithLength({0x82, 1, 0}, 0x100)));
  EXPECT_TRUE(IsTaken(WithLength({0x83, 1, 0, 0}, 0x10000)));
}

TEST(DerReaderTest, OtherFormsOfLengthAreRefused) {
  EXPECT_FALSE(IsTaken(WithLength({0x80}, 4))) << "indefinite";
  EXPECT_FALSE(IsTaken({0x30, 0x80, 0x05, 0, 0, 0})) << "indefinite";
  EXPECT_FALSE(IsTaken(WithLength({0x81, 0x7f}, 0x7f)));
  EXPECT_FALSE(IsTaken(WithLength({0x82, 0, 0x80}, 0x80)));
  EXPECT_FALSE(IsTaken(WithLength({0x82, 0, 1}, 1)));
  EXPECT_FALSE(IsTaken(WithLength({0x81, 0}, 0)));
}

TEST(DerReaderTest, ElementsThatRunPastTheEndAreRefused) {
  for (const Bytes& bytes : std::vector<Bytes>{
           {},
           {0x04},
           {0x04, 1},
           {0x04, 0x81},
           {0x04, 0x82, 1},
           WithLength({0x7f}, 0x7e),
           WithLength({0x81, 0x80}, 0x7f),
           WithLength({0x88, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, 20),
           WithLength({0x88, 0x80, 0, 0, 0, 0, 0, 0, 0}, 20),
           WithLength({0x89, 1, 0, 0, 0, 0, 0, 0, 0, 0x85}, 0x85),
           WithLength({0xfe}, 200),
           WithLength({0xff}, 200),
       }) {
    EXPECT_FALSE(IsTaken(bytes)) << testing::PrintToString(bytes);
    DerReader reader(bytes);
    EXPECT_FALSE(reader.Take(kDerOctetString));
    EXPECT_EQ(reader.IsAtEnd(), bytes.empty()) << "something was taken";
  }
}

TEST(DerReaderTest, TagsOfSeveralBytesAndNoTagAreRefused) {
  for (const unsigned char tag : Bytes{0x00, 0x1f, 0x3f, 0x9f, 0xbf, 0xff}) {
    EXPECT_FALSE(IsTaken({tag, 0, 0, 0})) << int{tag};
  }
}

TEST(DerReaderTest, OnlyElementFillsTheBytes) {
  const Bytes bytes = {0x30, 2, 0x05, 0};
  const auto element = ReadOnlyElement(kDerSequence, bytes);
  ASSERT_TRUE(element);
  EXPECT_THAT(element->content, ElementsAre(5, 0));
  EXPECT_FALSE(ReadOnlyElement(kDerSet, bytes));
  EXPECT_FALSE(ReadOnlyElement(kDerSequence, Bytes{0x30, 2, 0x05, 0, 0}));
  EXPECT_FALSE(ReadOnlyElement(kDerSequence, {}));
}

TEST(DerIntegerTest, ShortestFormOnly) {
  for (const Bytes& good : std::vector<Bytes>{
           {0}, {1}, {0x7f}, {0x80}, {0xff}, {0, 0x80}, {0xff, 0x7f}, {1, 0}, {0x80, 0xff}}) {
    EXPECT_TRUE(IsDerInteger(good)) << testing::PrintToString(good);
  }
  for (const Bytes& bad :
       std::vector<Bytes>{{}, {0, 0}, {0, 0x7f}, {0xff, 0x80}, {0xff, 0xff}, {0, 0, 0x80}}) {
    EXPECT_FALSE(IsDerInteger(bad)) << testing::PrintToString(bad);
    EXPECT_FALSE(ReadPositiveInteger(bad)) << testing::PrintToString(bad);
  }
}

TEST(DerIntegerTest, PositiveOnesLoseTheirSign) {
  const Bytes small = {1};
  const Bytes large = {0, 0x80, 0};
  ASSERT_TRUE(ReadPositiveInteger(small));
  EXPECT_THAT(*ReadPositiveInteger(small), ElementsAre(1));
  ASSERT_TRUE(ReadPositiveInteger(large));
  EXPECT_THAT(*ReadPositiveInteger(large), ElementsAre(0x80, 0));
  EXPECT_FALSE(ReadPositiveInteger(Bytes{0}));
  EXPECT_FALSE(ReadPositiveInteger(Bytes{0x80}));
  EXPECT_FALSE(ReadPositiveInteger(Bytes{0xff, 0}));
}

TEST(ObjectIdentifierTest, ConsistsOfWholeNumbers) {
  for (const Bytes& good : std::vector<Bytes>{{0x2a}, {0x2a, 0x86, 0x48}, {0x81, 0x80, 0x01}}) {
    EXPECT_TRUE(IsObjectIdentifier(good)) << testing::PrintToString(good);
  }
  for (const Bytes& bad :
       std::vector<Bytes>{{}, {0x86}, {0x2a, 0x86}, {0x80, 0x01}, {0x2a, 0x80, 0x01}}) {
    EXPECT_FALSE(IsObjectIdentifier(bad)) << testing::PrintToString(bad);
  }
}

TEST(BitStringTest, BeginsWithTheBitsThatDoNotCount) {
  const Bytes five = {5, 0xe0};
  const auto bits = ReadBitString(five);
  ASSERT_TRUE(bits);
  EXPECT_EQ(bits->unused, 5u);
  EXPECT_THAT(bits->bytes, ElementsAre(0xe0));
  ASSERT_TRUE(ReadBitString(Bytes{0}));
  EXPECT_FALSE(ReadBitString({}));
  EXPECT_FALSE(ReadBitString(Bytes{1})) << "none of no bits";
  EXPECT_FALSE(ReadBitString(Bytes{8, 0xff}));
}

}  // namespace
}  // namespace kelvrin::encoding
